#include "crash_journal.h"

#include <windows.h>

#include <sstream>
#include <string>

#include "files.h"
#include "format.h"

namespace zoctl {

std::uint32_t CrashJournal::Open() {
    const std::uint32_t error = zo::TryCreateDirectories(path_.parent_path());
    if (error != ERROR_SUCCESS) return error;
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    file_.Reset(
        CreateFileW(path_.c_str(), FILE_APPEND_DATA, kShareAll, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file_ ? ERROR_SUCCESS : GetLastError();
}

std::uint32_t CrashJournal::Add(const std::vector<Json>& entries) {
    std::string lines;
    for (const Json& entry : entries)
        lines += entry.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    return lines.empty() ? ERROR_SUCCESS : zo::WriteWhole(file_.Get(), lines);
}

std::uint32_t ReadCrashJournal(const std::filesystem::path& path, JournalEntries& journal) {
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(path.c_str(), bytes, zo::Sharing::kReadWriteDelete);
    if (!read) return read.error;
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
        Json entry = Json::parse(line, nullptr, false);
        if (entry.is_object()) {
            journal.entries.push_back(std::move(entry));
        } else {
            ++journal.unreadable;
        }
    }
    return ERROR_SUCCESS;
}

std::string JournalTime() {
    SYSTEMTIME now{};
    GetSystemTime(&now);
    return zo::Format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
                      now.wSecond);
}

}  // namespace zoctl
