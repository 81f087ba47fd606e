#include "crash_files.h"

#include "local_app_data.h"
#include "text.h"
#include "zocrashreport.h"

namespace zoctl {

std::filesystem::path CrashRecordPath(const std::string& named) {
    if (!named.empty()) return zo::WideFromUtf8(named);
    const std::filesystem::path folder = zo::LocalAppDataFolder();
    return folder.empty() ? folder : folder / ZOCRASH_DEFAULT_RECORD;
}

std::filesystem::path CrashJournalPath(const std::filesystem::path& record, const std::string& named) {
    if (!named.empty()) return zo::WideFromUtf8(named);
    return record.empty() ? record : record.parent_path() / L"crash_journal.jsonl";
}

}  // namespace zoctl
