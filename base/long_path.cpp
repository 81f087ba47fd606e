#include "long_path.h"

#include <windows.h>

#include <algorithm>

namespace zo {

std::uint32_t FullPath(const wchar_t* path, std::wstring& full) {
    DWORD units = MAX_PATH;
    for (;;) {
        full.resize(units);
        SetLastError(ERROR_SUCCESS);
        const DWORD length = GetFullPathNameW(path, units, full.data(), nullptr);
        if (length == 0) {
            // The empty path fails without an error of its own on some systems.
            const DWORD error = GetLastError();
            return error != ERROR_SUCCESS ? error : ERROR_INVALID_NAME;
        }
        full.resize(std::min(length, units));
        if (length < units) return ERROR_SUCCESS;
        units = length;  // this time with room for the terminator
    }
}

std::wstring WithLongPrefix(std::wstring_view full) {
    if (full.starts_with(LR"(\\?\)") || full.starts_with(LR"(\\.\)")) return std::wstring(full);
    if (full.starts_with(LR"(\\)")) return LR"(\\?\UNC\)" + std::wstring(full.substr(2));
    return LR"(\\?\)" + std::wstring(full);
}

std::wstring LongForm(const wchar_t* path) {
    std::wstring full;
    return FullPath(path, full) == ERROR_SUCCESS ? WithLongPrefix(full) : std::wstring(path);
}

}  // namespace zo
