#include "directory_listing.h"

namespace zosigner {

namespace {

constexpr std::size_t kBufferBytes = 64 * 1024;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool GetInformation(const wchar_t* path, BY_HANDLE_FILE_INFORMATION& information) {
    const zo::OwnedFile file(CreateFileW(path, FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return file && GetFileInformationByHandle(file.Get(), &information);
}

bool IsDots(std::wstring_view name) {
    return name == L"." || name == L"..";
}

}  // namespace

DirectoryListing::DirectoryListing() : buffer_(kBufferBytes / sizeof(std::uint64_t)) {}

std::uint32_t DirectoryListing::Open(const wchar_t* path, bool followLink) {
    const DWORD flags = FILE_FLAG_BACKUP_SEMANTICS | (followLink ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
    begun_ = false;
    error_ = ERROR_SUCCESS;
    next_ = nullptr;
    directory_.Reset(CreateFileW(path, FILE_LIST_DIRECTORY, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
    if (!directory_) return GetLastError();
    // The first records are read at once: what is no directory can be opened, but not listed.
    static_cast<void>(Fill());
    return error_;
}

bool DirectoryListing::Fill() {
    const auto kind = begun_ ? FileIdBothDirectoryInfo : FileIdBothDirectoryRestartInfo;
    begun_ = true;
    next_ = nullptr;
    if (!GetFileInformationByHandleEx(directory_.Get(), kind, buffer_.data(), static_cast<DWORD>(kBufferBytes))) {
        const DWORD error = GetLastError();
        // The root of an empty volume has not even the two dots, and says so with another error.
        const bool atEnd = error == ERROR_NO_MORE_FILES || error == ERROR_FILE_NOT_FOUND;
        error_ = atEnd ? ERROR_SUCCESS : error;
        directory_.Reset();
        return false;
    }
    next_ = reinterpret_cast<const std::byte*>(buffer_.data());
    return true;
}

bool DirectoryListing::Next(DirectoryItem& item) {
    for (;;) {
        if (next_ == nullptr && (!directory_ || !Fill())) return false;
        const auto& record = *reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(next_);
        next_ = record.NextEntryOffset == 0 ? nullptr : next_ + record.NextEntryOffset;
        item.name = {record.FileName, record.FileNameLength / sizeof(wchar_t)};
        if (IsDots(item.name)) continue;
        item.attributes = record.FileAttributes;
        item.size = static_cast<std::uint64_t>(record.EndOfFile.QuadPart);
        item.fileId = static_cast<std::uint64_t>(record.FileId.QuadPart);
        return true;
    }
}

FileIdentity::FileIdentity(const wchar_t* path) : exists_(GetInformation(path, information_)) {}

bool FileIdentity::MayBe(const DirectoryItem& item) const {
    const std::uint64_t number =
        (static_cast<std::uint64_t>(information_.nFileIndexHigh) << 32) | information_.nFileIndexLow;
    return exists_ && (item.fileId == 0 || item.fileId == number);
}

bool FileIdentity::Is(const wchar_t* path) const {
    BY_HANDLE_FILE_INFORMATION other{};
    if (!exists_ || !GetInformation(path, other)) return false;
    // Size and creation time tell files of different volumes apart where the volumes have no serial numbers.
    return other.dwVolumeSerialNumber == information_.dwVolumeSerialNumber &&
           other.nFileIndexHigh == information_.nFileIndexHigh && other.nFileIndexLow == information_.nFileIndexLow &&
           other.nFileSizeHigh == information_.nFileSizeHigh && other.nFileSizeLow == information_.nFileSizeLow &&
           CompareFileTime(&other.ftCreationTime, &information_.ftCreationTime) == 0;
}

}  // namespace zosigner
