#pragma once

// The processor's description of itself. Compilers have different intrinsics for the instruction, and clang cannot
// compile the header of mingw-w64 for it.

// clang-format off
#if defined(_MSC_VER)
#include <intrin.h>
#else
#include <cpuid.h>
#endif
// clang-format on

#include <array>
#include <cstdint>

namespace zo {

// EAX, EBX, ECX and EDX of one leaf. The caller checks first that the processor has the leaf.
[[nodiscard]] inline std::array<std::uint32_t, 4> CpuId(std::uint32_t leaf, std::uint32_t subleaf = 0) noexcept {
    std::array<std::uint32_t, 4> registers{};
#if defined(_MSC_VER)
    __cpuidex(reinterpret_cast<int*>(registers.data()), static_cast<int>(leaf), static_cast<int>(subleaf));
#else
    __cpuid_count(leaf, subleaf, registers[0], registers[1], registers[2], registers[3]);
#endif
    return registers;
}

}  // namespace zo
