#include "held_folder.h"

#include <utility>

namespace zo {

bool IsLink(HANDLE openedWithoutFollowing, const std::wstring& path) {
    FILE_BASIC_INFO byHandle{};
    // What cannot be examined is not trusted.
    if (!GetFileInformationByHandleEx(openedWithoutFollowing, FileBasicInfo, &byHandle, sizeof(byHandle))) return true;
    const DWORD byPath = GetFileAttributesW(path.c_str());
    return ((byHandle.FileAttributes | byPath) & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

std::uint32_t HeldFolder::Open(const std::wstring& path) {
    // The right to list makes the sharing count; a handle for the attributes alone would hold nothing. That it may read
    // the attributes as well, CreateFileW sees to.
    OwnedFile folder(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder) return GetLastError();
    if (IsLink(folder.Get(), path)) return kErrorIsALink;
    FILE_STANDARD_INFO info{};
    if (!GetFileInformationByHandleEx(folder.Get(), FileStandardInfo, &info, sizeof(info))) return GetLastError();
    if (!info.Directory) return ERROR_DIRECTORY;
    folder_ = std::move(folder);
    return ERROR_SUCCESS;
}

}  // namespace zo
