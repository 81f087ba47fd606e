#include "copy_driver_file.h"

namespace zop {

DWORD ZopCopyDriverFile(const wchar_t* source, const wchar_t* target) {
    if (!CopyFileW(source, target, FALSE)) return GetLastError();
    const DWORD attributes = GetFileAttributesW(target);
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        // When this fails the driver is in place all the same, and loads.
        SetFileAttributesW(target, attributes & ~DWORD{FILE_ATTRIBUTE_READONLY});
    }
    return ERROR_SUCCESS;
}

}  // namespace zop
