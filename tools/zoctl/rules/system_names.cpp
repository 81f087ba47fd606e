#include "system_names.h"

#include <windows.h>

#include "name_conversion.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

SystemNames::SystemNames() {
    for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
        const wchar_t name[] = {letter, L':', L'\0'};
        wchar_t target[MAX_PATH] = {};
        if (QueryDosDeviceW(name, target, MAX_PATH) != 0) {
            drives_.push_back({zo::Utf8FromWide(name), Fold(zo::Utf8FromWide(target))});
        }
    }
}

NameForms::Converted SystemNames::ToNtPath(const std::string& path) const {
    zop::ZopNtPath nt = {};
    const std::int32_t status = zop::ZopConvertWin32PathToNtPath(zo::WideFromUtf8(path), nt);
    if (status >= 0) return {zo::Utf8FromWide(nt), {}};
    return {{},
            status == ZOP_E_FAILED ? "its drive does not exist on this machine"
                                   : "is longer than 259 characters in full, or cannot be converted"};
}

NameForms::Converted SystemNames::ToNtKey(const std::string& key) const {
    zop::ZopNtKeyName nt = {};
    const std::int32_t status = zop::ZopRegistryKeyToNtName(zo::WideFromUtf8(key), nt);
    if (status >= 0) return {zo::Utf8FromWide(nt), {}};
    return {{},
            status == ZOP_E_FAILED
                ? "the current user cannot be determined"
                : "must begin with HKLM\\, HKCR\\, HKCU\\, HKU\\, their long names or \\REGISTRY\\, and be no longer "
                  "than 511 characters in full"};
}

std::string SystemNames::FromNtPath(const std::string& ntPath) const {
    const std::string folded = Fold(ntPath);
    // What has no drive goes to the driver as it is.
    std::vector<std::string> candidates;
    if (ntPath.starts_with("\\\\")) candidates.push_back(ntPath);
    const std::wstring wide = zo::WideFromUtf8(ntPath);
    for (const Drive& drive : drives_) {
        // Folding keeps the number of UTF-16 units, not that of bytes, so the rest is cut from the wide form.
        const std::size_t units = zo::WideFromUtf8(drive.target).size();
        if (folded.starts_with(drive.target + "\\")) {
            candidates.push_back(drive.name + zo::Utf8FromWide(std::wstring_view(wide).substr(units)));
        }
    }
    // Not every spelling survives the way there (a trailing blank, a path too long), so it is tried.
    for (const std::string& candidate : candidates) {
        if (Fold(ToNtPath(candidate).text) == folded) return candidate;
    }
    return {};
}

std::string SystemNames::Fold(const std::string& text) const {
    std::wstring wide = zo::WideFromUtf8(text);
    if (!wide.empty()) CharUpperBuffW(wide.data(), static_cast<DWORD>(wide.size()));
    return zo::Utf8FromWide(wide);
}

}  // namespace zoctl
