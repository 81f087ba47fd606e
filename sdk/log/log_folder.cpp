#include "log_folder.h"

#include <cstdint>
#include <filesystem>

#include "held_folder.h"

namespace zop {

namespace {

// Both folders of the log. While this lives, neither can become a link.
struct HeldLogFolders {
    HeldLogFolders(const std::wstring& parentPath, const std::wstring& folderPath)
        : held(parent.Open(parentPath) == ERROR_SUCCESS && folder.Open(folderPath) == ERROR_SUCCESS) {}

    zo::HeldFolder parent;
    zo::HeldFolder folder;
    bool held;
};

zo::OwnedFile OpenUnlessLink(const std::wstring& path) {
    // Without FILE_SHARE_WRITE: lines of two processes never mix, the second one writes to its debugger only.
    zo::OwnedFile file(CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (file && zo::IsLink(file.Get(), path)) file.Reset();
    return file;
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
    const HeldLogFolders folders(parent_, folder_);
    if (!folders.held) return;
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

zo::OwnedFile ZopLogFolder::OpenFileOf(const ZopLogTime& time) const {
    if (IsBelowTemporaryFolder()) {
        const HeldLogFolders folders(parent_, folder_);
        return folders.held ? OpenUnlessLink(PathOfFile(time)) : zo::OwnedFile();
    }
    return OpenUnlessLink(PathOfFile(time));
}

}  // namespace zop
