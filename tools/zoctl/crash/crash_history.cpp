#include "crash_history.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "crash_checks.h"
#include "crash_files.h"
#include "crash_journal.h"
#include "crash_outcome.h"
#include "format.h"
#include "text.h"

namespace zoctl {

namespace {

// A member as a cell; "-" where it is missing or of another type, because anyone can write into the file.
std::string Cell(const Json& entry, const char* member) {
    const auto found = entry.find(member);
    return found != entry.end() && found->is_string() ? found->get<std::string>() : "-";
}

std::string MatchedNames(const Json& entry) {
    std::string names;
    for (const Json& name : entry.value("matched", Json::array()))
        names += (names.empty() ? "" : "|") + (name.is_string() ? name.get<std::string>() : "?");
    return names.empty() ? "-" : names;
}

std::string BugCheckCell(const Json& entry) {
    const auto check = entry.find("bugCheck");
    return check != entry.end() && check->is_object() ? Cell(*check, "code") : "-";
}

bool IsOf(const Json& entry, const std::string& dump) {
    const std::wstring name = zo::WideFromUtf8(FileName(Cell(entry, "path")));
    return CompareStringOrdinal(name.c_str(), -1, zo::WideFromUtf8(FileName(dump)).c_str(), -1, TRUE) == CSTR_EQUAL;
}

void KeepAskedFor(std::vector<Json>& entries, const HistoryOptions& options) {
    if (!options.dump.empty()) std::erase_if(entries, [&](const Json& entry) { return !IsOf(entry, options.dump); });
    if (options.last != 0 && entries.size() > options.last) {
        entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(options.last));
    }
}

void ShowEntries(Output& out, const std::vector<Json>& entries) {
    if (entries.empty()) return;
    TextTable table({"TIME", "DUMP", "BUG CHECK", "MATCHED", "OUTCOME"});
    for (const Json& entry : entries) {
        table.Add({Cell(entry, "time"), FileName(Cell(entry, "path")), BugCheckCell(entry), MatchedNames(entry),
                   Cell(entry, "outcome")});
    }
    out.Table(table);
}

}  // namespace

int ShowCrashHistory(Output& out, const HistoryOptions& options) {
    const std::filesystem::path path = CrashJournalPath(CrashRecordPath(options.record), options.journal);
    const std::string name = zo::Utf8FromWide(path.wstring());
    JournalEntries journal;
    const std::uint32_t error = path.empty() ? ERROR_PATH_NOT_FOUND : ReadCrashJournal(path, journal);
    const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    if (error != ERROR_SUCCESS && (!absent || !options.journal.empty())) {
        return RefuseFile(out, "read the journal", path, error);
    }
    KeepAskedFor(journal.entries, options);
    const Json facts = {{"journal", name}, {"entries", journal.entries}, {"unreadable", journal.unreadable}};
    ShowEntries(out, journal.entries);
    if (journal.unreadable != 0) {
        out.Hint(zo::Format("Lines of the journal that could not be read and were left out: {}.", journal.unreadable));
    }
    if (!options.dump.empty() && journal.entries.empty()) {
        return out.Refuse(kExitNotFound,
                          "The journal " + Quote(name) + " has no entry for " + Quote(options.dump) + ".",
                          "\"zoctl crash list\" shows whether the dump is still to be processed.", facts);
    }
    if (!journal.entries.empty()) return out.Done("", facts);
    return out.Done("The journal " + Quote(name) + " has no entries. \"zoctl crash run\" and \"upload\" write it.",
                    facts);
}

}  // namespace zoctl
