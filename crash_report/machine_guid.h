#pragma once

// The machine's name in the crash protocol.

#include <string>

namespace zocrash {

// "ZoProtector_" and 32 lower-case characters: the system's machine GUID without its dashes, padded with
// zeros.
[[nodiscard]] std::string MachineGuid();

}  // namespace zocrash
