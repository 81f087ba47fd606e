#include "heap_count.h"

#include <windows.h>

#include <array>

namespace zotest {

std::size_t BusyHeapBlocks() {
    std::array<HANDLE, 64> heaps{};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    std::size_t blocks = 0;
    for (DWORD i = 0; i < count && i < heaps.size(); ++i) {
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[i], &entry)) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) ++blocks;
        }
    }
    return blocks;
}

}  // namespace zotest
