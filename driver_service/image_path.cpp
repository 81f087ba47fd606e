#include "image_path.h"

#include <windows.h>

namespace zop {

namespace {

constexpr std::wstring_view kSystemRoot = L"\\SystemRoot\\";

bool StartsWithSystemRoot(std::wstring_view path) {
    const std::wstring_view start = path.substr(0, kSystemRoot.size());
    return CompareStringOrdinal(start.data(), static_cast<int>(start.size()), kSystemRoot.data(),
                                static_cast<int>(kSystemRoot.size()), TRUE) == CSTR_EQUAL;
}

bool IsRelative(std::wstring_view path) {
    return !path.empty() && path[0] != L'\\' && path[0] != L'/' && path.substr(1, 1) != L":";
}

// Not the variable SystemRoot, which anybody who starts this process can set. Empty when the folder has no name.
std::wstring InWindowsFolder(std::wstring_view rest) {
    wchar_t folder[MAX_PATH] = {};
    const UINT length = GetSystemWindowsDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return {};
    return std::wstring(folder, length).append(L"\\").append(rest);
}

}  // namespace

std::wstring ZopResolveImagePath(std::wstring_view stored) {
    if (stored.starts_with(L"\\??\\") || stored.starts_with(L"\\\\?\\")) return std::wstring(stored.substr(4));
    if (StartsWithSystemRoot(stored)) return InWindowsFolder(stored.substr(kSystemRoot.size()));
    if (IsRelative(stored)) return InWindowsFolder(stored);
    return std::wstring(stored);
}

}  // namespace zop
