#pragma once

// How many kernel handles this process has open, for tests that nothing is left behind. (GetProcessHandleCount answers
// 0 under Wine.) Find handles are not kernel handles and do not show here.

#include <cstdint>

namespace zotest {

[[nodiscard]] std::uint32_t OpenHandleCount();

}  // namespace zotest
