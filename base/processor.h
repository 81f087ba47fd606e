#pragma once

// What the processor tells of itself. The compilers disagree about the instruction's intrinsic, and with clang the mingw-w64
// header for it does not compile.

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

// EAX, EBX, ECX and EDX of one leaf. Whether the processor has the leaf is for the caller to ask first.
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
