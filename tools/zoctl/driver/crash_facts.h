#pragma once

// Measures what a crash report needs, for the doctor. It creates nothing, and asks the server only when told to.

#include "crash_findings.h"

namespace zoctl {

[[nodiscard]] CrashFacts GatherCrashFacts(bool online);

}  // namespace zoctl
