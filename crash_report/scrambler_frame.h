#pragma once

// The built-in scrambler's form, without its cipher: eight random bytes, then the data and its padding XORed with the
// stream that the cipher makes of counter blocks (those eight bytes and a 64-bit big-endian block number from 0). The
// padding is two to nine bytes, the last of which holds their number, and makes the total a multiple of eight.
// It hides a dump's content from a casual look; TLS protects it on its way.

#include <cstddef>
#include <cstdint>
#include <span>

namespace zocrash {

inline constexpr std::size_t kNonceSize = 8;
inline constexpr std::size_t kLargestPadding = 9;
inline constexpr std::size_t kCipherBlock = 16;

[[nodiscard]] constexpr std::uint64_t ScrambledLength(std::uint64_t length) noexcept {
    return (length + 10 + 7) / 8 * 8;
}

class BlockCipher {
  public:
    virtual ~BlockCipher() = default;
    // Encrypts whole blocks where they lie, each by itself. Gives a status.
    [[nodiscard]] virtual std::int32_t Encrypt(std::span<std::uint8_t> blocks) = 0;
};

// The random bytes of one scrambling: the eight in front and the padding's.
struct ScramblerRandomness {
    std::uint8_t nonce[kNonceSize];
    std::uint8_t padding[kLargestPadding];
};

// `out` has exactly ScrambledLength(in.size()) bytes and does not overlap `in`. A failure is the cipher's.
[[nodiscard]] std::int32_t ScrambleBytes(std::span<const std::uint8_t> in, const ScramblerRandomness& random,
                                         BlockCipher& cipher, std::span<std::uint8_t> out);

}  // namespace zocrash
