#pragma once

// The diagnostic log of the driver SDK: one UTF-8 file a day in the user's temporary folder, every line also sent to
// the debugger. It is set up by the first ZoProtector_Initialize of the process; lines before that are dropped.
// Failures of the log are not reported: a log that stopped its caller would do more harm than a lost line.
//
// The crash reporter and the signer do not write here; they report through their callers' callbacks.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "format.h"

namespace zop {

inline constexpr std::uint32_t kLogError = 0;
inline constexpr std::uint32_t kLogWarning = 1;
inline constexpr std::uint32_t kLogInfo = 2;

// Finds and makes the log directory and deletes files that were last written more than seven days ago. Only the first
// call of a process does anything. Not for concurrent calls: ZoProtector_Initialize calls it under the SDK lock.
void ZopLogInit();

struct ZopLogTrial {
    std::wstring path;        // of today's file
    std::uint32_t error = 0;  // Win32; 0 when lines would reach it, zo::kErrorIsALink when a link keeps them from it
};

// Opens today's file as the first line of a process would, and closes it. Needs no ZopLogInit: for checks whether the
// log can be written. While this process has the file open, the error is that of a file in use.
[[nodiscard]] ZopLogTrial ZopTryLog();

// Writes one line, from any thread. message is UTF-8 and needs no line end.
void ZopLogWrite(std::uint32_t level, std::string_view message);

// The same for the end of the process: drops the line when another thread holds the log lock, which may have been ended
// while it did.
void ZopLogWriteUnlessLocked(std::uint32_t level, std::string_view message);

// Closes the file; the next line opens it again. Takes no lock, so that it also works at process exit, when a thread
// that was ended may have held the log lock. A line that is being written at that moment may fail, or land in whatever
// file has just got the handle's number.
void ZopLogClose() noexcept;

// Wide text is converted by the caller (ZopWideToUtf8).
template <typename... Args>
void ZopLogFormat(std::uint32_t level, zo::FormatString<Args...> format, Args&&... args) {
    ZopLogWrite(level, zo::Format(format, std::forward<Args>(args)...));
}

}  // namespace zop
