#pragma once

// What this process holds, for tests that nothing is left behind. (The process's own counters answer 0 under Wine.)

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace zotest {

// How many kernel handles are open. Find handles are not kernel handles and do not count.
[[nodiscard]] inline std::uint32_t OpenHandleCount() {
    // Handles are multiples of 4, given out from the lowest free one on; the range is far beyond what a test opens.
    std::uint32_t count = 0;
    for (std::uintptr_t value = 4; value < 0x4000; value += 4) {
        DWORD flags = 0;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
    }
    return count;
}

// How many blocks all heaps hold.
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

// Both, to compare with later.
struct Holdings {
    std::uint32_t handles = OpenHandleCount();
    std::size_t blocks = BusyHeapBlocks();
};

}  // namespace zotest
