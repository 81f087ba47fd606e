#include "file_identity.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "owned_handles.h"
#include "tree_path.h"

namespace zosigner {

namespace {

zo::OwnedFile OpenForAttributes(const std::wstring& path) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return zo::OwnedFile(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

// Nothing where the file system has no 128-bit ids, or gives zero instead.
std::optional<FILE_ID_INFO> IdOf(const std::wstring& path) {
    const zo::OwnedFile file = OpenForAttributes(path);
    FILE_ID_INFO id{};
    if (!file || !GetFileInformationByHandleEx(file.Get(), FileIdInfo, &id, sizeof(id))) return std::nullopt;
    const auto isZero = [](BYTE byte) { return byte == 0; };
    if (std::all_of(std::begin(id.FileId.Identifier), std::end(id.FileId.Identifier), isZero)) return std::nullopt;
    return id;
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
        const auto own = IdOf(path_);
        const auto other = own ? IdOf(path) : std::nullopt;
        if (other) {
            return other->VolumeSerialNumber == own->VolumeSerialNumber &&
                   std::memcmp(&other->FileId, &own->FileId, sizeof(own->FileId)) == 0;
        }
    }
    // The item's path is not resolved again: that could drop a dot at its end, which makes it another file.
    return EqualIgnoringCase(path, path_);
}

}  // namespace zosigner
