#include "scrambler_frame.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace zocrash {

namespace {

constexpr std::size_t kPiece = 2048 * kCipherBlock;

void FillCounterBlocks(std::span<std::uint8_t> blocks, const std::uint8_t (&nonce)[kNonceSize], std::uint64_t number) {
    for (std::size_t at = 0; at < blocks.size(); at += kCipherBlock, ++number) {
        std::memcpy(&blocks[at], nonce, kNonceSize);
        for (std::size_t i = 0; i < 8; ++i)
            blocks[at + 8 + i] = static_cast<std::uint8_t>(number >> (56 - 8 * i));
    }
}

}  // namespace

std::int32_t ScrambleBytes(std::span<const std::uint8_t> in, const ScramblerRandomness& random, BlockCipher& cipher,
                           std::span<std::uint8_t> out) {
    std::memcpy(out.data(), random.nonce, kNonceSize);
    const std::span<std::uint8_t> body = out.subspan(kNonceSize);
    std::copy(in.begin(), in.end(), body.begin());
    const std::size_t padding = body.size() - in.size();
    std::memcpy(&body[in.size()], random.padding, padding);
    body.back() = static_cast<std::uint8_t>(padding);

    std::vector<std::uint8_t> stream(std::min(kPiece, (body.size() + kCipherBlock - 1) / kCipherBlock * kCipherBlock));
    for (std::size_t at = 0; at < body.size(); at += stream.size()) {
        FillCounterBlocks(stream, random.nonce, at / kCipherBlock);
        if (const std::int32_t status = cipher.Encrypt(stream); status < 0) return status;
        const std::size_t piece = std::min(stream.size(), body.size() - at);
        std::transform(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(piece), &body[at], &body[at],
                       [](std::uint8_t a, std::uint8_t b) { return static_cast<std::uint8_t>(a ^ b); });
    }
    return 0;
}

}  // namespace zocrash
