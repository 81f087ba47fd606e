#include "file_identity.h"

#include <optional>

#include "file_id.h"
#include "owned_handles.h"
#include "tree_path.h"

namespace zosigner {

namespace {

zo::OwnedFile OpenForAttributes(const std::wstring& path) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return zo::OwnedFile(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
           CSTR_EQUAL;
}

std::uint64_t Join(DWORD high, DWORD low) {
    return (std::uint64_t{high} << 32) | low;
}

}  // namespace

FileIdentity::FileIdentity(const wchar_t* path)
    : path_(LongForm(path)), name_(std::wstring_view(path_).substr(path_.find_last_of(L"\\/") + 1)) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path_.c_str(), GetFileExInfoStandard, &data)) return;
    BY_HANDLE_FILE_INFORMATION target{};
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        target.nFileSizeHigh = data.nFileSizeHigh;
        target.nFileSizeLow = data.nFileSizeLow;
        target.ftCreationTime = data.ftCreationTime;
    } else if (const zo::OwnedFile file = OpenForAttributes(path_);
               !file || !GetFileInformationByHandle(file.Get(), &target)) {
        return;
    }
    exists_ = true;
    size_ = Join(target.nFileSizeHigh, target.nFileSizeLow);
    created_ = Join(target.ftCreationTime.dwHighDateTime, target.ftCreationTime.dwLowDateTime);
}

bool FileIdentity::MayBe(const DirectoryItem& item) const {
    // A listing can be late in showing what was written last, so an item of the same name is looked at in any case.
    if (EqualIgnoringCase(item.name, name_)) return true;
    return exists_ && item.size == size_ && item.created == created_;
}

bool FileIdentity::Is(const std::wstring& path, const DirectoryItem& item) const {
    if (!item.IsReparsePoint()) {
        const auto own = zo::FileIdOf(path_.c_str(), zo::LastLink::kFollow);
        const auto other = own ? zo::FileIdOf(path.c_str(), zo::LastLink::kFollow) : std::nullopt;
        if (other) return *other == *own;
    }
    // The item's path is not resolved again: that could drop a dot at its end, which makes it another file.
    return EqualIgnoringCase(path, path_);
}

}  // namespace zosigner
