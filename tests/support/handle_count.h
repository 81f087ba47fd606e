#pragma once

// How many kernel handles this process has open, for tests that nothing is left behind. (GetProcessHandleCount answers
// 0 under Wine.) Find handles are not kernel handles and do not show here.

#include <windows.h>

#include <cstdint>

namespace zotest {

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

}  // namespace zotest
