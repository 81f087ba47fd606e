#include "diagnostic_log.h"

#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>
#include <utility>

#include "locks.h"
#include "log_folder.h"
#include "log_line.h"
#include "owned_handles.h"

namespace zop {

namespace {

struct LogState {
    std::atomic<bool> initialized = false;  // never cleared again
    ZopLogFolder folder;                    // not written any more once initialized is set
    zo::CriticalSection lock;               // one line at a time, the change of file included
    zo::AtomicOwned<zo::FileKind> file;
    unsigned dayOfFile = 0;  // under the lock; the day of the month, 0 before the first file
};

LogState logState;

ZopLogTime LocalTime() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

// Under the log lock. A failed open is tried again at the next line.
void WriteLine(const ZopLogTime& time, std::uint32_t level, std::string_view message) {
    if (time.day != logState.dayOfFile) logState.file.Reset();
    if (!logState.file) {
        zo::OwnedFile file;
        // Without a file the line goes to the debugger only.
        static_cast<void>(logState.folder.OpenFileOf(time, file));
        logState.file.Reset(std::move(file));
        logState.dayOfFile = time.day;
    }
    const std::string line = ZopLogLine(time, level, message);
    if (const HANDLE file = logState.file.Get(); file != zo::FileKind::None()) {
        DWORD written = 0;
        WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    }
    OutputDebugStringA(line.c_str());
}

}  // namespace

void ZopLogInit() {
    if (logState.initialized) return;
    logState.folder.Find();
    // From here on another thread may write a line, and reads the folder.
    logState.initialized = true;
    logState.folder.DeleteOldFiles();
}

ZopLogTrial ZopTryLog() {
    ZopLogFolder folder;
    folder.Find();
    const ZopLogTime time = LocalTime();
    zo::OwnedFile file;
    return {folder.PathOfFile(time), folder.OpenFileOf(time, file)};
}

void ZopLogWrite(std::uint32_t level, std::string_view message) {
    if (!logState.initialized) return;
    const ZopLogTime time = LocalTime();
    const std::lock_guard guard(logState.lock);
    WriteLine(time, level, message);
}

void ZopLogWriteUnlessLocked(std::uint32_t level, std::string_view message) {
    if (!logState.initialized) return;
    const ZopLogTime time = LocalTime();
    const std::unique_lock guard(logState.lock, std::try_to_lock);
    if (guard) WriteLine(time, level, message);
}

void ZopLogClose() noexcept {
    logState.file.Reset();
}

}  // namespace zop
