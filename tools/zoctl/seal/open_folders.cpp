#include "open_folders.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "long_path.h"
#include "text.h"

namespace zoctl {

namespace {

// As the file system compares names.
bool BeginsWithName(std::wstring_view text, std::wstring_view name) {
    const auto length = static_cast<int>(name.size());
    return text.size() >= name.size() &&
           CompareStringOrdinal(text.data(), length, name.data(), length, TRUE) == CSTR_EQUAL;
}

bool IsOrLiesBelow(std::wstring_view path, std::wstring_view folder, wchar_t separator) {
    return BeginsWithName(path, folder) && (path.size() == folder.size() || path[folder.size()] == separator);
}

std::wstring WithoutLastSeparators(std::wstring path) {
    while (path.ends_with(L'\\'))
        path.pop_back();
    return path;
}

bool IsFolder(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(zo::LongForm(path.c_str()).c_str());
    constexpr DWORD kKind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kKind) == FILE_ATTRIBUTE_DIRECTORY;
}

}  // namespace

bool OpenFolders::Add(const std::wstring& root, const std::wstring& name) {
    std::wstring base;
    if (name.empty() || zo::FullPath(root.c_str(), base) != ERROR_SUCCESS) return false;
    const std::filesystem::path named = (std::filesystem::path(base) / name).lexically_normal().make_preferred();
    const std::wstring full = WithoutLastSeparators(named.wstring());
    root_ = base = WithoutLastSeparators(base);
    if (!IsOrLiesBelow(full, base, L'\\')) return false;
    if (full.size() == base.size()) {
        folders_.push_back({L"."});
        return true;
    }
    if (!IsFolder(full)) return false;
    std::wstring relative = full.substr(base.size() + 1);
    std::replace(relative.begin(), relative.end(), L'\\', L'/');
    folders_.push_back({relative});
    return true;
}

std::vector<std::string> OpenFolders::Names() const {
    std::vector<std::string> names;
    for (const Folder& folder : folders_)
        names.push_back(zo::Utf8FromWide(folder.path));
    return names;
}

std::vector<std::string> OpenFolders::NotAsked() const {
    std::vector<std::string> names;
    for (const Folder& folder : folders_) {
        if (!folder.asked) names.push_back(zo::Utf8FromWide(folder.path));
    }
    return names;
}

bool OpenFolders::Folder::Holds(const std::wstring& other) const {
    return path == L"." || IsOrLiesBelow(other, path, L'/');
}

bool OpenFolders::HoldsItem(const std::string& path) const {
    const std::wstring full = zo::WideFromUtf8(path);
    const std::wstring above = root_ + L'\\';
    if (!BeginsWithName(full, above)) return false;
    std::wstring relative = full.substr(above.size());
    std::replace(relative.begin(), relative.end(), L'\\', L'/');
    return std::any_of(folders_.begin(), folders_.end(), [&](const Folder& folder) { return folder.Holds(relative); });
}

std::int32_t OpenFolders::Ask(void* context, const wchar_t* path, std::int32_t* seal, std::int32_t*) {
    for (Folder& folder : static_cast<OpenFolders*>(context)->folders_) {
        if (!folder.Holds(path)) continue;
        folder.asked = true;
        *seal = 0;
    }
    return 0;
}

}  // namespace zoctl
