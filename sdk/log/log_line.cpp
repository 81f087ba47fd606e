#include "log_line.h"

#include <array>

#include "format.h"

namespace zop {

namespace {

// All of one width, so that the messages line up.
constexpr std::array<std::string_view, 4> kLevelWords = {"ERROR", "WARN ", "INFO ", "DEBUG"};
constexpr std::string_view kUnknownLevel = "?????";

constexpr std::uint64_t kRetention = 6'048'000'000'000;  // seven days in units of 100 ns

}  // namespace

std::string ZopLogLine(const ZopLogTime& time, std::uint32_t level, std::string_view message) {
    const std::string_view word = level < kLevelWords.size() ? kLevelWords[level] : kUnknownLevel;
    return zo::Format("[{:04d}-{:02d}-{:02d} {:02d}:{:02d}:{:02d}.{:03d}][{}] {}\r\n", time.year, time.month, time.day,
                      time.hour, time.minute, time.second, time.millisecond, word, message);
}

std::string ZopLogFileName(const ZopLogTime& time) {
    return zo::Format("\\ZoProtector_{:04d}{:02d}{:02d}.log", time.year, time.month, time.day);
}

bool ZopIsPastRetention(std::uint64_t now, std::uint64_t lastWrite) noexcept {
    return now > lastWrite && now - lastWrite > kRetention;
}

}  // namespace zop
