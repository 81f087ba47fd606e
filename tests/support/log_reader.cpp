#include "log_reader.h"

#include <algorithm>

#include "format.h"
#include "owned_handles.h"

namespace zotest {
namespace {

// Not the product's own whole-file reader: that one does not share the file with a writer.
std::string ReadShared(const std::filesystem::path& path) {
    const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_READ,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text;
    if (!file) return text;
    char block[65536];
    DWORD size = 0;
    while (ReadFile(file.Get(), block, sizeof(block), &size, nullptr) && size != 0)
        text.append(block, size);
    return text;
}

}  // namespace

std::filesystem::path TodaysLog() {
    wchar_t folder[MAX_PATH + 1]{};
    GetTempPathW(MAX_PATH + 1, folder);
    SYSTEMTIME now;
    GetLocalTime(&now);
    return std::filesystem::path(folder) / "ZoProtector" / "Logs" /
           zo::Format("ZoProtector_{:04d}{:02d}{:02d}.log", now.wYear, now.wMonth, now.wDay);
}

std::vector<std::string> ReadLogLines(const std::filesystem::path& file) {
    std::vector<std::string> lines;
    const std::string text = ReadShared(file);
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::string line = text.substr(begin, end - begin);
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(std::move(line));
        begin = end + 1;
    }
    return lines;
}

LogTail::LogTail(std::filesystem::path file) : file_(std::move(file)), seen_(ReadLogLines(file_).size()) {}

std::vector<std::string> LogTail::Next() {
    std::vector<std::string> lines = ReadLogLines(file_);
    const std::size_t before = std::min(seen_, lines.size());
    seen_ = lines.size();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    return lines;
}

bool AnyLineEndsWith(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return line.ends_with(text); });
}

}  // namespace zotest
