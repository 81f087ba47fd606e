#pragma once

// Where the driver's file comes from, where it is installed, and where the service manager says that it is.

#include <cstdint>

#include "path_buffer.h"

namespace zop {

// The driver file beside the executable of this process (not beside the library).
[[nodiscard]] std::int32_t ZopDefaultSourcePath(PathBuffer& path);

// The driver file in the system's drivers folder.
[[nodiscard]] std::int32_t ZopInstalledPath(PathBuffer& path);

// The file that the service is configured with, as a Win32 path; the default source path when there is no service or
// it has no binary path.
[[nodiscard]] std::int32_t ZopConfiguredImagePath(PathBuffer& path);

}  // namespace zop
