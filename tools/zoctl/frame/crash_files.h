#pragma once

// Where the crash reporter's files of the current user are.

#include <filesystem>
#include <string>

namespace zoctl {

// The dedupe record: the one that is named, else the library's own. Empty when that has no place.
[[nodiscard]] std::filesystem::path CrashRecordPath(const std::string& named = {});

// The journal of "zoctl crash" for that record: the one that is named, else a file next to the record.
[[nodiscard]] std::filesystem::path CrashJournalPath(const std::filesystem::path& record,
                                                     const std::string& named = {});

}  // namespace zoctl
