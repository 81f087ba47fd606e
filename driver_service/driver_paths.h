#pragma once

// The driver file's source, its installed path, and the path that the service manager has for it.

#include <cstdint>

#include "path_buffer.h"

namespace zop {

// The driver file in the folder of the executable of this process (not of the library).
[[nodiscard]] std::int32_t ZopDefaultSourcePath(ZopPathBuffer& path);

// The driver file in the system's drivers folder.
[[nodiscard]] std::int32_t ZopInstalledPath(ZopPathBuffer& path);

// The file that the service is configured with, as a Win32 path; the default source path when there is no service or
// it has no binary path.
[[nodiscard]] std::int32_t ZopConfiguredImagePath(ZopPathBuffer& path);

}  // namespace zop
