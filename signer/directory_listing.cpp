#include "directory_listing.h"

namespace zosigner {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool IsDots(std::wstring_view name) {
    return name == L"." || name == L"..";
}

}  // namespace

std::uint32_t DirectoryListing::Open(const wchar_t* path, bool followLink) {
    const DWORD flags = FILE_FLAG_BACKUP_SEMANTICS | (followLink ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
    begun_ = false;
    error_ = ERROR_SUCCESS;
    next_ = nullptr;
    directory_.Reset(CreateFileW(path, FILE_LIST_DIRECTORY, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
    if (!directory_) return GetLastError();
    // The first records are read at once: a file can be opened this way, but not listed.
    static_cast<void>(Fill());
    return error_;
}

bool DirectoryListing::Fill() {
    // Every file system gives this record. Some, mostly network file systems, refuse the records with file ids.
    const auto kind = begun_ ? FileFullDirectoryInfo : FileFullDirectoryRestartInfo;
    begun_ = true;
    next_ = nullptr;
    if (!GetFileInformationByHandleEx(directory_.Get(), kind, buffer_.Get(), IoBuffer::kBytes)) {
        const DWORD error = GetLastError();
        // The root of an empty volume has not even "." and "..", and ends with another error.
        const bool atEnd = error == ERROR_NO_MORE_FILES || error == ERROR_FILE_NOT_FOUND;
        error_ = atEnd ? ERROR_SUCCESS : error;
        directory_.Reset();
        return false;
    }
    next_ = static_cast<const std::byte*>(buffer_.Get());
    return true;
}

bool DirectoryListing::Next(DirectoryItem& item) {
    for (;;) {
        if (next_ == nullptr && (!directory_ || !Fill())) return false;
        const auto& record = *reinterpret_cast<const FILE_FULL_DIR_INFO*>(next_);
        next_ = record.NextEntryOffset == 0 ? nullptr : next_ + record.NextEntryOffset;
        item.name = {record.FileName, record.FileNameLength / sizeof(wchar_t)};
        if (IsDots(item.name)) continue;
        item.attributes = record.FileAttributes;
        item.size = static_cast<std::uint64_t>(record.EndOfFile.QuadPart);
        item.created = static_cast<std::uint64_t>(record.CreationTime.QuadPart);
        return true;
    }
}

}  // namespace zosigner
