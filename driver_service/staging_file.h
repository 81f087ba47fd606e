#pragma once

// The name under which a replaced driver file lies until the next restart. Which folder that name is in is decided
// twice and differently: the upgrade moves the file by itself and takes the temporary folder whenever there is one,
// while the driver can only rename within the target's volume.

#include <windows.h>

#include <cstdint>
#include <string_view>

#include "path_buffer.h"

namespace zop {

// Appends "ZoProtectorDriver_", the number and the extension to a folder. False, with the folder kept, when the name
// does not fit.
[[nodiscard]] bool AppendStagingName(PathBuffer& folder, std::uint64_t number, std::wstring_view extension);

// The user's temporary folder, with its separator at the end. False when there is none or its name is too long.
[[nodiscard]] bool ReadTemporaryFolder(PathBuffer& folder);

// Has the system delete the file at its next start. When that cannot be arranged the file stays behind, which harms
// nobody, so no result is given.
void DeleteAtRestart(const PathBuffer& file);

}  // namespace zop
