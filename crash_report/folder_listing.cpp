#include "folder_listing.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace zocrash {

namespace {

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

std::uint32_t ListFolder(const zo::HeldFolder& folder, std::vector<FolderEntry>& entries) {
    alignas(FILE_FULL_DIR_INFO) std::array<std::byte, 16384> records;
    while (GetFileInformationByHandleEx(folder.Get(), FileFullDirectoryInfo, records.data(),
                                        static_cast<DWORD>(records.size()))) {
        AppendEntries(records.data(), entries);
    }
    const DWORD error = GetLastError();
    return error == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : error;
}

}  // namespace zocrash
