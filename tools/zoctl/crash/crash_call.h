#pragma once

// How a call of the crash reporter, or one that was given up, is shown and put into the journal.

#include "crash_journal.h"
#include "crash_outcome.h"
#include "crash_session.h"
#include "output.h"

namespace zoctl {

struct CrashCall {
    Output& out;
    const CrashOptions& options;
    CrashMode mode;
    CrashJournal* journal = nullptr;  // open
    std::string journalError = {};    // why there is none
};

// The end of the command: shows the dumps, adds them to the journal and gives the exit code.
[[nodiscard]] int FinishCall(const CrashCall& call, const CrashResult& result);

struct RefusalText {
    int exitCode = kExitFailed;
    std::string message;
    std::string advice;
};

// The same for a run that was given up before anything was sent, by what its trial found.
[[nodiscard]] int RefuseCall(const CrashCall& call, const CrashResult& trial, const Refusal& refusal,
                             const RefusalText& text);

}  // namespace zoctl
