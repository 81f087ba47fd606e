#include "directory_listing.h"

#include <utility>

#include "tree_path.h"

namespace zosigner {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool GetInformation(const wchar_t* path, BY_HANDLE_FILE_INFORMATION& information) {
    const zo::OwnedFile file(CreateFileW(path, FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return file && GetFileInformationByHandle(file.Get(), &information);
}

std::uint64_t Join(DWORD high, DWORD low) {
    return (std::uint64_t{high} << 32) | low;
}

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
    // The first records are read at once: what is no directory can be opened, but not listed.
    static_cast<void>(Fill());
    return error_;
}

bool DirectoryListing::Fill() {
    const auto kind = begun_ ? FileIdBothDirectoryInfo : FileIdBothDirectoryRestartInfo;
    begun_ = true;
    next_ = nullptr;
    if (!GetFileInformationByHandleEx(directory_.Get(), kind, buffer_.Get(), IoBuffer::kBytes)) {
        const DWORD error = GetLastError();
        // The root of an empty volume has not even the two dots, and says so with another error.
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
        const auto& record = *reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(next_);
        next_ = record.NextEntryOffset == 0 ? nullptr : next_ + record.NextEntryOffset;
        item.name = {record.FileName, record.FileNameLength / sizeof(wchar_t)};
        if (IsDots(item.name)) continue;
        item.attributes = record.FileAttributes;
        item.size = static_cast<std::uint64_t>(record.EndOfFile.QuadPart);
        item.created = static_cast<std::uint64_t>(record.CreationTime.QuadPart);
        return true;
    }
}

void FileIdentity::Look() {
    path_ = LongForm(std::exchange(given_, nullptr));
    name_ = std::wstring_view(path_).substr(path_.find_last_of(L"\\/") + 1);
    exists_ = GetFileAttributesExW(path_.c_str(), GetFileExInfoStandard, &data_) != FALSE;
}

bool FileIdentity::MayBe(const DirectoryItem& item) {
    if (given_ != nullptr) Look();
    if (!exists_) return false;
    // The times and the size of a link are not those of what it leads to.
    if ((data_.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return true;
    // A listing may be late in telling what was written last, so an item of the same name is looked at in any case.
    if (CompareStringOrdinal(item.name.data(), static_cast<int>(item.name.size()), name_.data(),
                             static_cast<int>(name_.size()), TRUE) == CSTR_EQUAL) {
        return true;
    }
    return item.size == Join(data_.nFileSizeHigh, data_.nFileSizeLow) &&
           item.created == Join(data_.ftCreationTime.dwHighDateTime, data_.ftCreationTime.dwLowDateTime);
}

bool FileIdentity::Is(const wchar_t* path) const {
    BY_HANDLE_FILE_INFORMATION own{};
    BY_HANDLE_FILE_INFORMATION other{};
    if (!exists_ || !GetInformation(path_.c_str(), own) || !GetInformation(path, other)) return false;
    // Size and creation time tell files of different volumes apart where the volumes have no serial numbers.
    return other.dwVolumeSerialNumber == own.dwVolumeSerialNumber && other.nFileIndexHigh == own.nFileIndexHigh &&
           other.nFileIndexLow == own.nFileIndexLow && other.nFileSizeHigh == own.nFileSizeHigh &&
           other.nFileSizeLow == own.nFileSizeLow && CompareFileTime(&other.ftCreationTime, &own.ftCreationTime) == 0;
}

}  // namespace zosigner
