#include "diagnostic_log.h"

#include <windows.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>

#include "locks.h"
#include "log_line.h"
#include "owned_handles.h"

namespace zop {

namespace {

struct LogState {
    std::atomic<bool> initialized = false;  // never cleared again
    std::wstring directory;                 // not written any more once initialized is set
    zo::CriticalSection lock;               // one line at a time, the change of file included
    zo::AtomicOwned<zo::FileKind> file;
    unsigned dayOfFile = 0;  // under the lock; the day of the month, 0 before the first file
};

LogState logState;

constexpr wchar_t kNoDirectory[] = L".";  // without a temporary folder: the current one, and no sweep

LogTime LocalTime() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

std::uint64_t Ticks(const FILETIME& time) {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

void DeleteOldFiles(const std::wstring& directory) {
    WIN32_FIND_DATAW entry{};
    const zo::OwnedFind search(FindFirstFileW((directory + L"\\ZoProtector_*.log").c_str(), &entry));
    if (!search) return;
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    do {
        if (IsPastRetention(Ticks(now), Ticks(entry.ftLastWriteTime))) {
            DeleteFileW((directory + L"\\" + entry.cFileName).c_str());  // a file in use stays until the next sweep
        }
    } while (FindNextFileW(search.Get(), &entry));
}

std::wstring PathOf(const std::wstring& directory, const LogTime& time) {
    const std::string name = LogFileName(time);
    return directory + std::wstring(name.begin(), name.end());
}

std::wstring MakeDirectory() {
    wchar_t temporary[MAX_PATH] = {};
    const DWORD length = GetTempPathW(MAX_PATH, temporary);
    if (length == 0 || length > MAX_PATH - 1) return kNoDirectory;
    const std::filesystem::path root(temporary);
    std::wstring directory = (root / L"ZoProtector\\Logs").wstring();
    // Usually both exist; where they cannot be made, opening the file fails and the lines go to the debugger only.
    CreateDirectoryW((root / L"ZoProtector").c_str(), nullptr);
    CreateDirectoryW(directory.c_str(), nullptr);
    return directory;
}

// Under the log lock. A failed open is tried again at the next line.
void OpenFileOf(const LogTime& time) {
    const std::wstring path = PathOf(logState.directory, time);
    // Without FILE_SHARE_WRITE: lines of two processes never mix, the second one writes to its debugger only.
    logState.file.Reset(zo::OwnedFile(CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                                  FILE_ATTRIBUTE_NORMAL, nullptr)));
    logState.dayOfFile = time.day;
}

}  // namespace

void ZopLogInit() {
    if (logState.initialized) return;
    logState.directory = MakeDirectory();
    // From here on another thread may write a line, and reads the directory.
    logState.initialized = true;
    if (logState.directory != kNoDirectory) DeleteOldFiles(logState.directory);
}

std::wstring ZopLogPath() {
    return PathOf(MakeDirectory(), LocalTime());
}

void ZopLogWrite(std::uint32_t level, std::string_view message) {
    if (!logState.initialized) return;
    const LogTime time = LocalTime();
    const std::lock_guard guard(logState.lock);
    if (time.day != logState.dayOfFile) logState.file.Reset();
    if (!logState.file) OpenFileOf(time);

    const std::string line = LogLine(time, level, message);
    if (const HANDLE file = logState.file.Get(); file != zo::FileKind::None()) {
        DWORD written = 0;
        WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    }
    OutputDebugStringA(line.c_str());
}

void ZopLogClose() noexcept {
    logState.file.Reset();
}

}  // namespace zop
