#pragma once

// The bulk of base64 for processors with 256-bit integer instructions. base64.h is what callers use. Its source is
// built for such processors only, so nothing in it may run before the processor is known to be one.

#include <cstddef>
#include <cstdint>

namespace zocrash {

// Encodes as many whole groups of 24 bytes as it can, 32 characters each, and gives the number of bytes taken. Fewer
// than 28 bytes are left over; all are where the build has no such instructions.
[[nodiscard]] std::size_t EncodeBase64Avx2(const std::uint8_t* bytes, std::size_t size, char* text) noexcept;

}  // namespace zocrash
