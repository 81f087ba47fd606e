#pragma once

// The bulk of base64 for processors with 256-bit integer instructions. base64.h is what callers use.

#include <cstddef>
#include <cstdint>

namespace zocrash {

// Whether the processor and the system have what the function below was built for; false where it was built without.
[[nodiscard]] bool HasBase64Avx2() noexcept;

// Encodes as many whole groups of 24 bytes as it can, 32 characters each, and gives the number of bytes taken. Fewer
// than 28 bytes are left over.
[[nodiscard]] std::size_t EncodeBase64Avx2(const std::uint8_t* bytes, std::size_t size, char* text) noexcept;

}  // namespace zocrash
