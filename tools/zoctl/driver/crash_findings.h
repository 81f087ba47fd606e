#pragma once

// What the doctor makes of the crash reporter's surroundings. Pure; crash_facts.h measures them.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "finding.h"

namespace zoctl {

struct CrashFile {
    std::string path;         // empty when the system has no place for it
    std::uint32_t error = 0;  // Win32, of a trial to write that creates nothing
};

struct CrashFacts {
    std::string missingLibrary;  // of the debugger engine; empty when all are there
    std::string dumpFolder;
    std::uint32_t dumpFolderError = 0;  // Win32, of listing it
    CrashFile record;
    CrashFile journal;
    std::string server;
    std::optional<std::uint32_t> serverError;  // Win32, 0 when it answered; nothing when it was not asked
    std::string serverErrorText;
};

[[nodiscard]] std::vector<Finding> JudgeCrashReports(const CrashFacts& facts);

}  // namespace zoctl
