#pragma once

// The text of a line of the diagnostic log, and the name of its daily file. Pure: the time is an argument, so that the
// text can be checked without a clock.

#include <cstdint>
#include <string>
#include <string_view>

namespace zop {

// Local time.
struct ZopLogTime {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    unsigned millisecond = 0;
};

// "[2024-03-05 09:07:03.042][WARN ] message", ended by CR and LF.
[[nodiscard]] std::string ZopLogLine(const ZopLogTime& time, std::uint32_t level, std::string_view message);

// "\ZoProtector_20240305.log", to be appended to the log directory.
[[nodiscard]] std::string ZopLogFileName(const ZopLogTime& time);

// Whether a file of this age is deleted when the log is set up. Both times count 100 ns since 1601 (FILETIME); a file
// from the future is kept.
[[nodiscard]] bool ZopIsPastRetention(std::uint64_t now, std::uint64_t lastWrite) noexcept;

}  // namespace zop
