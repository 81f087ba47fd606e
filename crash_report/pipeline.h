#pragma once

// What happens to each new dump: it is analysed and matched against the target drivers; if it concerns one, the server
// is asked about it and it is sent.

#include <cstdint>

#include "dump_list.h"
#include "reporter_context.h"

namespace zocrash {

// The list has at least one dump. The result record may be null. The status is that of the whole call; a dump that
// fails is counted, logged and skipped.
[[nodiscard]] std::int32_t ProcessDumps(CrashReporterContext& reporter, const DumpList& dumps, ZoCrashRunStats* stats);

}  // namespace zocrash
