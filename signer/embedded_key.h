#pragma once

// The public key that the library was built with.

#include <array>
#include <cstdint>

namespace zosigner {

// A BCRYPT_RSAPUBLIC_BLOB of a 2048-bit key: six 32-bit numbers ("RSA1", 2048, 3, 256, 0, 0), exponent, modulus.
inline constexpr std::size_t kPublicBlobSize = 283;

extern const std::array<std::uint8_t, kPublicBlobSize> kEmbeddedPublicKey;

}  // namespace zosigner
