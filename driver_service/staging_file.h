#pragma once

// The name of a replaced driver file until the next restart. Its folder is chosen in two ways: the upgrade moves the
// file itself and takes the temporary folder whenever there is one; the driver can only rename within the target's
// volume.

#include <windows.h>

#include <cstdint>
#include <string_view>

#include "path_buffer.h"

namespace zop {

// Appends "ZoProtectorDriver_", the number and the extension to a folder. False when the name does not fit; the buffer
// then holds no usable path.
[[nodiscard]] bool ZopAppendStagingName(ZopPathBuffer& folder, std::uint64_t number, std::wstring_view extension);

// The user's temporary folder, with its separator at the end. False when there is none or its name is too long.
[[nodiscard]] bool ZopReadTemporaryFolder(ZopPathBuffer& folder);

// Has the system delete the file at its next start. When that fails the file stays behind, which does no harm, so there
// is no result.
void ZopDeleteAtRestart(const ZopPathBuffer& file);

}  // namespace zop
