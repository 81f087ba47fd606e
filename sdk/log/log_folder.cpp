#include "log_folder.h"

#include <filesystem>
#include <utility>

#include "held_folder.h"

namespace zop {

namespace {

// Both folders of the log. While this lives, neither can become a link.
class HeldLogFolders {
  public:
    // Gives the Win32 error, 0 when both are held.
    [[nodiscard]] std::uint32_t Hold(const std::wstring& parent, const std::wstring& folder) {
        const std::uint32_t error = parent_.Open(parent);
        return error != ERROR_SUCCESS ? error : folder_.Open(folder);
    }

  private:
    zo::HeldFolder parent_;
    zo::HeldFolder folder_;
};

// Whether the file has another name, too. It may be a file that others must not change: making a second name of a file
// needs no right to write to it.
bool HasOtherNames(HANDLE file) {
    FILE_STANDARD_INFO info{};
    return !GetFileInformationByHandleEx(file, FileStandardInfo, &info, sizeof(info)) || info.NumberOfLinks > 1;
}

std::uint32_t OpenUnlessLink(const std::wstring& path, zo::OwnedFile& file) {
    // Without FILE_SHARE_WRITE: lines of two processes never mix, the second one writes to its debugger only.
    zo::OwnedFile opened(CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!opened) return GetLastError();
    if (zo::IsLink(opened.Get(), path) || HasOtherNames(opened.Get())) return zo::kErrorIsALink;
    file = std::move(opened);
    return ERROR_SUCCESS;
}

std::uint64_t Ticks(const FILETIME& time) {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

}  // namespace

void ZopLogFolder::Find() {
    wchar_t temporary[MAX_PATH] = {};
    const DWORD length = GetTempPathW(MAX_PATH, temporary);
    if (length == 0 || length > MAX_PATH - 1) return;
    parent_ = (std::filesystem::path(temporary) / L"ZoProtector").wstring();
    folder_ = parent_ + L"\\Logs";
    // Usually both exist.
    CreateDirectoryW(parent_.c_str(), nullptr);
    zo::HeldFolder parent;
    if (parent.Open(parent_) == ERROR_SUCCESS) CreateDirectoryW(folder_.c_str(), nullptr);
}

std::wstring ZopLogFolder::PathOfFile(const ZopLogTime& time) const {
    const std::string name = ZopLogFileName(time);
    return folder_ + std::wstring(name.begin(), name.end());
}

void ZopLogFolder::DeleteOldFiles() const {
    if (!IsBelowTemporaryFolder()) return;
    HeldLogFolders folders;
    if (folders.Hold(parent_, folder_) != ERROR_SUCCESS) return;
    WIN32_FIND_DATAW entry{};
    const zo::OwnedFind search(FindFirstFileW((folder_ + L"\\ZoProtector_*.log").c_str(), &entry));
    if (!search) return;
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    do {
        if (ZopIsPastRetention(Ticks(now), Ticks(entry.ftLastWriteTime))) {
            DeleteFileW((folder_ + L"\\" + entry.cFileName).c_str());  // a file in use stays until the next sweep
        }
    } while (FindNextFileW(search.Get(), &entry));
}

std::uint32_t ZopLogFolder::OpenFileOf(const ZopLogTime& time, zo::OwnedFile& file) const {
    HeldLogFolders folders;
    if (IsBelowTemporaryFolder()) {
        if (const std::uint32_t error = folders.Hold(parent_, folder_); error != ERROR_SUCCESS) return error;
    }
    return OpenUnlessLink(PathOfFile(time), file);
}

}  // namespace zop
