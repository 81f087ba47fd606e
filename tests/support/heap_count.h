#pragma once

// How many blocks all heaps of this process hold, for tests that nothing is left behind. (The process's memory counters
// answer 0 under Wine.)

#include <windows.h>

#include <cstddef>

namespace zotest {

[[nodiscard]] inline std::size_t BusyHeapBlocks() {
    HANDLE heaps[64];
    const DWORD count = GetProcessHeaps(64, heaps);
    std::size_t blocks = 0;
    for (DWORD i = 0; i < count && i < 64; ++i) {
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[i], &entry))
            blocks += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? 1 : 0;
    }
    return blocks;
}

}  // namespace zotest
