#pragma once

// The analysis of all dumps before anything is sent. It holds every document back, for which the reporter's built-in
// scrambler has to be replaced; that cannot be undone, so the trial runs in a process of its own: another
// zoctl. An engine that crashes on a dump ends that process and not this one.

#include <string>

#include "console.h"
#include "crash_session.h"

namespace zoctl {

struct CrashTrial {
    CrashResult result;   // its dumps are selected as a run would select them; nothing was sent
    std::string failure;  // when there is no result: why, as a sentence
};

[[nodiscard]] CrashTrial TryCrashReporter(const CrashOptions& options, const Cancellation& cancellation);

}  // namespace zoctl
