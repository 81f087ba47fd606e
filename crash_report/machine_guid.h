#pragma once

// The machine's name in the crash protocol.

#include <string>

namespace zocrash {

// "ZoProtector_" and 32 lower-case characters: the system's machine GUID without its dashes, zeros in place of what is
// missing.
[[nodiscard]] std::string MachineGuid();

}  // namespace zocrash
