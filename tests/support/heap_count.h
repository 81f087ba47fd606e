#pragma once

// How many blocks all heaps of this process hold, for tests that nothing is left behind. (The process's memory counters
// answer 0 under Wine.)

#include <cstddef>

namespace zotest {

[[nodiscard]] std::size_t BusyHeapBlocks();

}  // namespace zotest
