#pragma once

// "zoctl crash run" and "upload": a trial and a look at the server come first, because the library offers no dump
// twice.

#include "crash_session.h"
#include "output.h"

namespace zoctl {

[[nodiscard]] int SendDumps(Output& out, const CrashOptions& options,
                            const std::function<void(const CrashMessage&)>& progress);

}  // namespace zoctl
