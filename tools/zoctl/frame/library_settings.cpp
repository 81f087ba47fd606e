#include "library_settings.h"

#include <windows.h>

#include <cstddef>
#include <vector>

#include "text.h"

namespace zoctl {

namespace {

// A text of the version resource of the library's file.
std::string VersionText(const wchar_t* name) {
    wchar_t path[MAX_PATH] = {};
    const DWORD units = GetModuleFileNameW(GetModuleHandleW(L"ZoProtectorLib.dll"), path, MAX_PATH);
    const DWORD size = units > 0 && units < MAX_PATH ? GetFileVersionInfoSizeW(path, nullptr) : 0;
    std::vector<std::byte> resource(size);
    void* text = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(path, 0, size, resource.data()) ||
        !VerQueryValueW(resource.data(), (L"\\StringFileInfo\\040904B0\\" + std::wstring(name)).c_str(), &text,
                        &length)) {
        return {};
    }
    return zo::Utf8FromWide(static_cast<const wchar_t*>(text));
}

}  // namespace

std::string DevelopmentSettings() {
    return VersionText(L"SpecialBuild");
}

std::string EmbeddedPublicKey() {
    return VersionText(L"EmbeddedPublicKey");
}

}  // namespace zoctl
