#pragma once

// What "zoctl crash" checks before it calls the crash reporter, which would take a mistake for an empty folder or an
// empty record and use dumps up.

#include "crash_session.h"
#include "output.h"

namespace zoctl {

// The options by themselves: the address of the server, the dump folder, the dump, the record.
[[nodiscard]] Ended CheckCrashOptions(Output& out, const CrashOptions& options, CrashMode mode);

// Ends a command that could not use one of its own files, with the code for the Win32 error. attempt: "read the
// journal"
int RefuseFile(Output& out, const char* attempt, const std::filesystem::path& file, std::uint32_t error);

struct CrashFailure {
    std::string what;  // "load the debugger engine"
    Subject subject;
};

// What failed when the reporter gave a status, by its messages.
[[nodiscard]] CrashFailure DescribeCrashFailure(const CrashResult& result, const CrashOptions& options, CrashMode mode);

}  // namespace zoctl
