#include "file_id.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

#include "owned_handles.h"

namespace zo {

std::optional<FileId> FileIdOf(const wchar_t* path, LastLink lastLink) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const DWORD flags =
        FILE_FLAG_BACKUP_SEMANTICS | (lastLink == LastLink::kDoNotFollow ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
    const OwnedFile file(CreateFileW(path, FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
    FILE_ID_INFO info{};
    if (!file || !GetFileInformationByHandleEx(file.Get(), FileIdInfo, &info, sizeof(info))) return std::nullopt;
    FileId id{info.VolumeSerialNumber, {}};
    std::copy(std::begin(info.FileId.Identifier), std::end(info.FileId.Identifier), id.file.begin());
    if (id.file == FileId{}.file) return std::nullopt;
    return id;
}

}  // namespace zo
