#include "temporary_file.h"

#include <windows.h>

namespace zoctl {

TemporaryFile::~TemporaryFile() {
    if (!path_.empty()) DeleteFileW(path_.c_str());  // a leftover in the temporary folder harms nobody
}

std::uint32_t TemporaryFile::Create(const wchar_t* prefix) {
    // Of the folder, which leaves room for the name. Windows refuses more; Wine writes behind the buffer.
    constexpr DWORD kMostUnits = MAX_PATH - 14;
    wchar_t folder[MAX_PATH + 1]{};
    wchar_t file[MAX_PATH]{};
    const DWORD units = GetTempPathW(MAX_PATH + 1, folder);
    if (units > kMostUnits) return ERROR_FILENAME_EXCED_RANGE;
    if (units == 0 || GetTempFileNameW(folder, prefix, 0, file) == 0) return GetLastError();
    path_ = file;
    return ERROR_SUCCESS;
}

}  // namespace zoctl
