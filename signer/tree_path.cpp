#include "tree_path.h"

#include <windows.h>

#include <algorithm>

#include "error_text.h"
#include "manifest_text.h"
#include "text.h"

namespace zosigner {

namespace {

template <typename Character>
bool EndsInSeparator(std::basic_string_view<Character> path) {
    return path.ends_with(Character{'\\'}) || path.ends_with(Character{'/'});
}

}  // namespace

std::wstring JoinPath(std::wstring_view folder, std::wstring_view name) {
    std::wstring path(folder);
    if (!folder.empty() && !EndsInSeparator(folder)) path += L'\\';
    path += name;
    return path;
}

std::string JoinRelative(std::string_view directory, std::string_view name) {
    if (directory == kRootDirectory) return std::string(name);
    std::string path(directory);
    path += '/';
    path += name;
    return path;
}

bool TreeRoot::Resolve(const wchar_t* folder, const Report& report) {
    std::wstring full;
    if (const std::uint32_t error = zo::FullPath(folder, full); error != ERROR_SUCCESS) {
        report.Error("resolve root: {}", zo::ErrorText(error));
        return false;
    }
    shown_ = zo::Utf8FromWide(full);
    long_ = zo::WithLongPrefix(full);
    return true;
}

std::string TreeRoot::Shown(std::string_view relative) const {
    std::string path = shown_;
    if (!EndsInSeparator(std::string_view(path))) path += '\\';
    path += relative;
    std::replace(path.end() - static_cast<std::ptrdiff_t>(relative.size()), path.end(), '/', '\\');
    return path;
}

std::wstring TreeRoot::Long(std::string_view relative) const {
    if (relative == kRootDirectory) return long_;
    std::wstring name = zo::WideFromUtf8(relative);
    std::replace(name.begin(), name.end(), L'/', L'\\');
    return JoinPath(long_, name);
}

}  // namespace zosigner
