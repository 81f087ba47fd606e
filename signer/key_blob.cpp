#include "key_blob.h"

#include <cstddef>
#include <cstring>

namespace zosigner {

namespace {

// Six little-endian numbers; exponent and modulus follow. A full private blob goes on with both primes, an exponent for
// each prime, the coefficient (as long as the first prime) and the private exponent (as long as the modulus).
struct Header {
    std::uint32_t magic;
    std::uint32_t bits;
    std::uint32_t exponentSize;
    std::uint32_t modulusSize;
    std::uint32_t prime1Size;
    std::uint32_t prime2Size;
};
static_assert(sizeof(Header) == 24 && offsetof(Header, prime2Size) == 20);

constexpr std::uint32_t kPublicMagic = 0x31415352;       // "RSA1"
constexpr std::uint32_t kFullPrivateMagic = 0x33415352;  // "RSA3"
constexpr std::uint32_t kBits = 2048;
constexpr std::uint32_t kModulusSize = kBits / 8;
constexpr std::uint32_t kPrimeSize = kModulusSize / 2;

constexpr auto kInvalidParameter = static_cast<std::int32_t>(0xC000000Du);
constexpr auto kNotSupported = static_cast<std::int32_t>(0xC00000BBu);

}  // namespace

std::int32_t CheckKeyBlob(std::span<const std::uint8_t> blob, KeyBlobKind kind) noexcept {
    if (blob.size() < sizeof(Header)) return kInvalidParameter;
    Header header;
    std::memcpy(&header, blob.data(), sizeof(header));
    const bool isPrivate = kind == KeyBlobKind::kFullPrivate;
    if (header.magic != (isPrivate ? kFullPrivateMagic : kPublicMagic)) return kNotSupported;
    if (header.bits != kBits || header.modulusSize != kModulusSize || header.exponentSize == 0) return kNotSupported;
    std::uint64_t size = sizeof(Header) + std::uint64_t{header.exponentSize} + kModulusSize;
    if (isPrivate) {
        if (header.prime1Size != kPrimeSize || header.prime2Size != kPrimeSize) return kNotSupported;
        size += 5 * kPrimeSize + kModulusSize;
    }
    return blob.size() == size ? 0 : kNotSupported;
}

}  // namespace zosigner
