#pragma once

// What the registry has for the driver's service and no export reports.

#include <string>

namespace zoctl {

// Whether the driver may be stopped without a restart.
[[nodiscard]] bool AllowsUnload();
// The filter instance that a driver package for Windows 11 24H2 or later registers, below the key Parameters, where the
// filter manager looks too. Empty when there is none.
[[nodiscard]] std::string AltitudeUnderParameters();

}  // namespace zoctl
