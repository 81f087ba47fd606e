#pragma once

// The public key that the library was built with.

#include <cstdint>
#include <span>

namespace zosigner {

// A BCRYPT_RSAPUBLIC_BLOB of a 2048-bit key: six 32-bit numbers ("RSA1", 2048, 3, 256, 0, 0), exponent, modulus.
[[nodiscard]] std::span<const std::uint8_t, 283> EmbeddedPublicKey();

}  // namespace zosigner
