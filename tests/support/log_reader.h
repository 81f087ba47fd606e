#pragma once

// The lines of the library's diagnostic log: <temporary folder>\ZoProtector\Logs\ZoProtector_YYYYMMDD.log.

#include <filesystem>
#include <string>
#include <vector>

namespace zotest {

// Today's file in the temporary folder of this process (see ScopedTmp), by local date.
[[nodiscard]] std::filesystem::path TodaysLog();

// The lines without their line ends, whole as they are in the file; none when there is no file. The file may still be
// open for writing.
[[nodiscard]] std::vector<std::string> ReadLogLines(const std::filesystem::path& file = TodaysLog());

// Remembers how much of the file there is now; Next() gives the lines added since the last look.
class LogTail {
  public:
    explicit LogTail(std::filesystem::path file = TodaysLog());
    [[nodiscard]] std::vector<std::string> Next();

  private:
    std::filesystem::path file_;
    std::size_t seen_ = 0;
};

// Whether a line ends with the text (which is how a test names a message without its time and level).
[[nodiscard]] bool AnyLineEndsWith(const std::vector<std::string>& lines, const std::string& text);

}  // namespace zotest
