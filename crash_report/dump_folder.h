#pragma once

// Where the machine keeps its kernel minidumps, and a private copy of that folder when this process may not read it.

#include <cstdint>
#include <string>

#include "reporter_context.h"
#include "staged_folder.h"

namespace zocrash {

// The configured folder, else the one that the registry names, else the Windows folder's "Minidump". Empty when there
// is none.
[[nodiscard]] std::wstring ResolveDumpFolder(const CrashReportSettings& settings);

// Tries to read the folder and, when access is denied, has the driver copy it: `folder` is then the copy, which the run
// removes. Any other error is reported and left for the listing to find.
[[nodiscard]] std::int32_t OpenDumpFolder(const CrashReporterContext& reporter, std::wstring& folder,
                                          StagedFolder& staged);

}  // namespace zocrash
