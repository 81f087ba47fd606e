#pragma once

// The paths that the sealing commands are given, looked at before the library is called: it reports a folder that is
// gone as one missing file after the other, and it replaces whatever file is named as the manifest.

#include <cstdint>
#include <string>

#include "output.h"

namespace zoctl {

// What is at a path of any length.
struct PathState {
    std::uint32_t attributes = 0;
    std::uint32_t error = 0;  // Win32; not 0 when there is nothing, or when that cannot be determined

    // Certainly nothing. False when it cannot be determined.
    [[nodiscard]] bool Absent() const;
    [[nodiscard]] bool IsFolder() const;
};

[[nodiscard]] PathState StateOf(const std::string& path);

// Ends the command when the folder to sign or to verify is not there.
[[nodiscard]] Ended CheckFolder(Output& out, const std::string& folder);

}  // namespace zoctl
