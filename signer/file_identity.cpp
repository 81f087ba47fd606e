#include "file_identity.h"

#include <algorithm>
#include <cstring>

#include "owned_handles.h"
#include "tree_path.h"

namespace zosigner {

namespace {

zo::OwnedFile OpenForAttributes(const std::wstring& path) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return zo::OwnedFile(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

// Nothing where the file system has no 128-bit ids, or gives zero for want of one.
std::optional<FILE_ID_INFO> IdOf(const zo::OwnedFile& file) {
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
    const zo::OwnedFile file = OpenForAttributes(path_);
    BY_HANDLE_FILE_INFORMATION information{};
    if (!file || !GetFileInformationByHandle(file.Get(), &information)) return;
    exists_ = true;
    size_ = Join(information.nFileSizeHigh, information.nFileSizeLow);
    created_ = Join(information.ftCreationTime.dwHighDateTime, information.ftCreationTime.dwLowDateTime);
    id_ = IdOf(file);
}

bool FileIdentity::MayBe(const DirectoryItem& item) const {
    // A listing can be late in showing what was written last, so an item of the same name is looked at in any case.
    if (EqualIgnoringCase(item.name, name_)) return true;
    return exists_ && item.size == size_ && item.created == created_;
}

bool FileIdentity::Is(const std::wstring& path, const DirectoryItem& item) const {
    if (id_ && !item.IsReparsePoint()) {
        if (const auto other = IdOf(OpenForAttributes(path))) {
            return other->VolumeSerialNumber == id_->VolumeSerialNumber &&
                   std::memcmp(&other->FileId, &id_->FileId, sizeof(id_->FileId)) == 0;
        }
    }
    // The item's path is not resolved again: that could drop a dot at its end, which makes it another file.
    return EqualIgnoringCase(path, path_);
}

}  // namespace zosigner
