#include "held_folder.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace zocrash {

namespace {

constexpr DWORD kLink = FILE_ATTRIBUTE_REPARSE_POINT;

// What is open and what the path leads to. Wine follows links when it opens them and shows them by path only.
std::uint32_t CheckIsFolder(HANDLE folder, const std::wstring& path) {
    FILE_BASIC_INFO byHandle{};
    if (!GetFileInformationByHandleEx(folder, FileBasicInfo, &byHandle, sizeof(byHandle))) return GetLastError();
    const DWORD byPath = GetFileAttributesW(path.c_str());
    if (byPath == INVALID_FILE_ATTRIBUTES) return GetLastError();
    if (((byHandle.FileAttributes | byPath) & kLink) != 0) return kStoppedOnLink;
    return (byHandle.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? ERROR_SUCCESS : ERROR_DIRECTORY;
}

void AppendEntries(const std::byte* records, std::vector<FolderEntry>& entries) {
    for (;;) {
        const auto& record = *reinterpret_cast<const FILE_FULL_DIR_INFO*>(records);
        const std::wstring_view name(record.FileName, record.FileNameLength / sizeof(wchar_t));
        if (name != L"." && name != L"..") entries.push_back({std::wstring(name), record.FileAttributes});
        if (record.NextEntryOffset == 0) return;
        records += record.NextEntryOffset;
    }
}

}  // namespace

std::uint32_t HeldFolder::Open(const std::wstring& path) {
    // A handle that may list counts for the sharing check; one for the attributes alone would hold nothing. Without
    // delete sharing the folder can be neither renamed nor removed.
    zo::OwnedFile folder(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder) return GetLastError();
    const std::uint32_t error = CheckIsFolder(folder.Get(), path);
    if (error == ERROR_SUCCESS) folder_ = std::move(folder);
    return error;
}

std::uint32_t HeldFolder::List(std::vector<FolderEntry>& entries) const {
    alignas(FILE_FULL_DIR_INFO) std::array<std::byte, 16384> records;
    while (GetFileInformationByHandleEx(folder_.Get(), FileFullDirectoryInfo, records.data(),
                                        static_cast<DWORD>(records.size()))) {
        AppendEntries(records.data(), entries);
    }
    const DWORD error = GetLastError();
    return error == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : error;
}

}  // namespace zocrash
