#pragma once

// The lines of the library's diagnostic log: <temporary folder>\ZoProtector\Logs\ZoProtector_YYYYMMDD.log.

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "files.h"
#include "format.h"

namespace zotest {

// Today's file in the temporary folder of this process (see ScopedTmp), by local date.
[[nodiscard]] inline std::filesystem::path TodaysLog() {
    wchar_t folder[MAX_PATH + 1]{};
    GetTempPathW(MAX_PATH + 1, folder);
    SYSTEMTIME now;
    GetLocalTime(&now);
    return std::filesystem::path(folder) / "ZoProtector" / "Logs" /
           zo::Format("ZoProtector_{:04d}{:02d}{:02d}.log", now.wYear, now.wMonth, now.wDay);
}

// The lines without their line ends, whole as they are in the file; none when there is no file. The file may still be
// open for writing.
[[nodiscard]] inline std::vector<std::string> ReadLogLines(const std::filesystem::path& file = TodaysLog()) {
    std::string text;
    static_cast<void>(zo::ReadWholeFile(file.c_str(), text, zo::Sharing::kReadWriteDelete));
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// Remembers how much of today's file there is now; Next() gives the lines added since the last look, without their
// time: "[INFO ] message".
class LogTail {
  public:
    [[nodiscard]] std::vector<std::string> Next() {
        std::vector<std::string> lines = ReadLogLines(file_);
        const std::ptrdiff_t before = std::min(seen_, std::ssize(lines));
        seen_ = std::ssize(lines);
        lines.erase(lines.begin(), lines.begin() + before);
        for (std::string& line : lines)
            line.erase(0, 25);
        return lines;
    }

  private:
    std::filesystem::path file_ = TodaysLog();
    std::ptrdiff_t seen_ = std::ssize(ReadLogLines(file_));
};

// Whether a line ends with the text (which is how a test names a message without its time and level).
[[nodiscard]] inline bool AnyLineEndsWith(const std::vector<std::string>& lines, const std::string& text) {
    return std::ranges::any_of(lines, [&](const std::string& line) { return line.ends_with(text); });
}

}  // namespace zotest
