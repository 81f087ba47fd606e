#include "system_places.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "format.h"
#include "owned_handles.h"
#include "text.h"
#include "wildcards.h"

namespace zoctl {

namespace {

constexpr std::size_t kLongestPath = 32768;

// Without a backslash at the end, that of a drive's root included.
std::wstring FullPath(const std::wstring& path) {
    std::array<wchar_t, kLongestPath> full{};
    const DWORD units = GetFullPathNameW(path.c_str(), kLongestPath, full.data(), nullptr);
    std::wstring text(full.data(), units < kLongestPath ? units : 0);
    while (text.ends_with(L'\\'))
        text.pop_back();
    return text;
}

// The kernel's name of what is there, "" when it cannot be opened.
std::wstring FinalName(const std::wstring& path) {
    const zo::OwnedFile file(CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file) return {};
    std::array<wchar_t, kLongestPath> name{};
    const DWORD units = GetFinalPathNameByHandleW(file.Get(), name.data(), kLongestPath, VOLUME_NAME_NT);
    return {name.data(), units < kLongestPath ? units : 0};
}

// A reparse point that leads to another name; those of compressed, deduplicated and cloud files do not. Wine's have no
// tag.
bool IsLink(const WIN32_FIND_DATAW& found) {
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
    return found.dwReserved0 == 0 || IsReparseTagNameSurrogate(found.dwReserved0);
}

// Follows a full path from its drive to the last name that is there.
class Walk {
  public:
    Walk(const std::wstring& full, const NameForms& names) : names_(names), there_(full.substr(0, 2)) {
        for (std::size_t at = 3; at < full.size() && !absent_;) {
            const std::size_t end = std::min(full.find(L'\\', at), full.size());
            Step(full.substr(at, end - at));
            at = end + 1;
        }
        rest_ = full.substr(std::min(there_.size(), full.size()));
    }

    [[nodiscard]] Place Result(const std::string& nt) const {
        Place place;
        place.presence = absent_ ? *absent_ : Presence::kThere;
        place.detour = detour_;
        const std::wstring final = FinalName(there_.size() == 2 ? there_ + L"\\" : there_);
        if (final.empty()) return place;
        const bool root = final.back() == L'\\';
        const std::string seen = zo::Utf8FromWide((root ? final.substr(0, final.size() - 1) : final) + rest_);
        if (names_.Fold(seen) != names_.Fold(nt)) place.seenAs = seen;
        return place;
    }

  private:
    void Step(const std::wstring& name) {
        const std::wstring path = there_ + L"\\" + name;
        WIN32_FIND_DATAW found{};
        // A wildcard would find another name, and no file has one in its own.
        const bool findable = name.find_first_of(L"*?") == std::wstring::npos;
        const zo::OwnedFind find(findable ? FindFirstFileW(path.c_str(), &found) : INVALID_HANDLE_VALUE);
        if (!find) {
            const DWORD error = findable ? GetLastError() : ERROR_FILE_NOT_FOUND;
            // What is above is there, but may be a file.
            const bool none = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
                              error == ERROR_DIRECTORY || error == ERROR_INVALID_NAME;
            absent_ = none ? Presence::kAbsent : Presence::kUnknown;
            return;
        }
        there_ = path;
        if (!detour_.empty()) return;
        const auto detour = [&](const char* what) { detour_ = zo::Format("{} '{}'", what, zo::Utf8FromWide(path)); };
        const auto folded = [&](const wchar_t* text) { return names_.Fold(zo::Utf8FromWide(text)); };
        if (IsLink(found)) {
            detour("goes through the link or mount point");
        } else if (folded(name.c_str()) != folded(found.cFileName)) {
            detour("has the short name");
        }
    }

    const NameForms& names_;
    std::wstring there_;  // the part that exists
    std::wstring rest_;
    std::string detour_;
    std::optional<Presence> absent_;
};

// \Device\LanmanRedirector\;Z:... is another name of \Device\Mup, and \??\C:\... what "subst" makes.
const char* DriveDetour(const std::wstring& drive) {
    std::array<wchar_t, kLongestPath> target{};
    QueryDosDeviceW(drive.c_str(), target.data(), kLongestPath);  // a drive that is gone is no detour
    if (std::wstring_view(target.data()).starts_with(L"\\??\\")) return "is on the substituted drive";
    return GetDriveTypeW((drive + L"\\").c_str()) == DRIVE_REMOTE ? "is on the network drive" : nullptr;
}

struct KeyName {
    ULONG bytes;
    wchar_t units[kLongestPath];
};

// The kernel's name of an open key; registry links are resolved in it.
std::wstring KernelName(HKEY key) {
    constexpr int kKeyNameInformation = 3;
    using QueryKey = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<QueryKey>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryKey")));
    const auto name = std::make_unique<KeyName>();
    ULONG size = 0;
    if (!query || query(key, kKeyNameInformation, name.get(), sizeof(KeyName), &size) < 0) return {};
    return {name->units, name->bytes / sizeof(wchar_t)};
}

}  // namespace

Place SystemPlaces::OfPath(const std::string& path, const std::string& nt) const {
    const std::wstring full = FullPath(zo::WideFromUtf8(path));
    if (full.size() < 2 || full[1] != L':') {
        return {Presence::kUnknown, {}, "begins with two backslashes and is sent to the driver unchanged"};
    }
    const std::wstring drive = full.substr(0, 2);
    if (const char* detour = DriveDetour(drive)) {
        return {Presence::kUnknown, {}, zo::Format("{} '{}'", detour, zo::Utf8FromWide(drive))};
    }
    std::string without = nt;
    while (without.ends_with('\\'))
        without.pop_back();
    return Walk(full, names_).Result(without);
}

Place SystemPlaces::OfKey(const std::string& nt) const {
    struct Root {
        const wchar_t* nt;
        HKEY key;
    };
    static const Root kRoots[] = {{L"\\REGISTRY\\MACHINE\\", HKEY_LOCAL_MACHINE}, {L"\\REGISTRY\\USER\\", HKEY_USERS}};
    const std::wstring wide = zo::WideFromUtf8(nt);
    for (const Root& root : kRoots) {
        const std::size_t rootUnits = wcslen(root.nt);
        if (_wcsnicmp(wide.c_str(), root.nt, rootUnits) != 0) continue;
        // The longest part that is there: links are in the middle of a name as well.
        for (std::size_t end = wide.size(); end >= rootUnits; end = wide.rfind(L'\\', end - 1)) {
            HKEY opened = nullptr;
            const std::wstring part = wide.substr(rootUnits, end - rootUnits);
            const LSTATUS status = RegOpenKeyExW(root.key, part.c_str(), 0, KEY_QUERY_VALUE, &opened);
            if (status == ERROR_FILE_NOT_FOUND) continue;
            if (status != ERROR_SUCCESS) return {};
            const zo::OwnedRegistryKey key(opened);
            Place place{end == wide.size() ? Presence::kThere : Presence::kAbsent, {}, {}};
            const std::wstring kernel = KernelName(key.Get());
            const std::string seen = zo::Utf8FromWide(kernel + wide.substr(end));
            if (!kernel.empty() && names_.Fold(seen) != names_.Fold(nt)) place.seenAs = seen;
            return place;
        }
        return {Presence::kAbsent, {}, {}};
    }
    return {};
}

Presence SystemPlaces::AnyFile(const std::string& folder, bool recursive, const std::string& filter) const {
    constexpr int kMostNames = 100000;
    const std::string pattern = names_.Fold(filter);
    std::vector<std::wstring> folders = {FullPath(zo::WideFromUtf8(folder))};
    if (folders[0].size() < 2 || folders[0][1] != L':' || DriveDetour(folders[0].substr(0, 2))) {
        return Presence::kUnknown;
    }
    for (int names = 0; !folders.empty();) {
        const std::wstring open = std::move(folders.back());
        folders.pop_back();
        WIN32_FIND_DATAW found{};
        const zo::OwnedFind find(FindFirstFileW((open + L"\\*").c_str(), &found));
        if (!find) return Presence::kUnknown;
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            if (++names > kMostNames) return Presence::kUnknown;
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
                if (FitsPattern(pattern, names_.Fold(zo::Utf8FromWide(name)))) return Presence::kThere;
            } else if (recursive && !IsLink(found)) {
                folders.push_back(open + L"\\" + name);
            }
        } while (FindNextFileW(find.Get(), &found));
    }
    return Presence::kAbsent;
}

}  // namespace zoctl
