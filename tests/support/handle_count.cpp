#include "handle_count.h"

#include <windows.h>

namespace zotest {

std::uint32_t OpenHandleCount() {
    // Handles are multiples of 4, given out from the lowest free one on; the range is far beyond what a test opens.
    constexpr std::uintptr_t kBeyond = 0x4000;
    std::uint32_t count = 0;
    for (std::uintptr_t value = 4; value < kBeyond; value += 4) {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
    }
    return count;
}

}  // namespace zotest
