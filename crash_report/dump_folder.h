#pragma once

// Where the machine keeps its kernel minidumps, and a private copy of that folder when this process may not read it.

#include <cstdint>
#include <string>

#include "reporter_context.h"

namespace zocrash {

// The configured folder, else the one that the registry names, else the Windows folder's "Minidump". Empty when there
// is none.
[[nodiscard]] std::wstring ResolveDumpFolder(const CrashReportSettings& settings);

struct DumpFolder {
    std::wstring path;
    std::wstring staged;  // the copy that RemoveStagedFolder is to remove; empty when there is none
};

// Tries to read the folder and has the driver copy it into the temporary folder when access is denied. Any other
// trouble is reported and left for the listing to find.
[[nodiscard]] std::int32_t OpenDumpFolder(const CrashReporterContext& reporter, DumpFolder& folder);

void RemoveStagedFolder(const CrashReporterContext& reporter, const std::wstring& staged);

}  // namespace zocrash
