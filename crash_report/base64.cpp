#include "base64.h"

#include <array>
#include <cstring>

#include "base64_avx2.h"

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace zocrash {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Both characters of every 12-bit value, so that three bytes take two lookups instead of four.
constexpr auto kPairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
        pairs[value] = {kAlphabet[value >> 6], kAlphabet[value & 63]};
    }
    return pairs;
}();

std::uint64_t LoadBigEndian(const std::uint8_t* bytes) noexcept {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i)
        value = value << 8 | bytes[i];
    return value;
}

// Six bytes, the topmost of the value, to eight characters.
void EncodeSix(std::uint64_t value, char* text) noexcept {
    for (std::size_t i = 0; i < 4; ++i) {
        std::memcpy(text + 2 * i, kPairs[value >> (52 - 12 * i) & 0xFFF].data(), 2);
    }
}

// Whether the processor has the 256-bit integer instructions and the system keeps their registers.
bool HasAvx2() noexcept {
#if defined(_MSC_VER) && defined(_M_X64)
    int leaf1[4];
    int leaf7[4];
    __cpuid(leaf1, 1);
    __cpuidex(leaf7, 7, 0);
    const bool systemKeepsRegisters = (leaf1[2] & (1 << 27)) != 0 && (_xgetbv(0) & 6) == 6;
    return systemKeepsRegisters && (leaf7[1] & (1 << 5)) != 0;
#elif defined(__x86_64__)
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

}  // namespace

void EncodeBase64(std::span<const std::uint8_t> bytes, char* text) noexcept {
    const std::uint8_t* next = bytes.data();
    std::size_t left = bytes.size();
    if (HasAvx2()) {
        const std::size_t done = EncodeBase64Avx2(next, left, text);
        next += done;
        left -= done;
        text += done / 3 * 4;
    }
    EncodeBase64Portable({next, left}, text);
}

void EncodeBase64Portable(std::span<const std::uint8_t> bytes, char* text) noexcept {
    const std::uint8_t* next = bytes.data();
    std::size_t left = bytes.size();
    // Eight bytes are loaded and six used, hence the two that must remain.
    for (; left >= 26; left -= 24, next += 24, text += 32) {
        EncodeSix(LoadBigEndian(next), text);
        EncodeSix(LoadBigEndian(next + 6), text + 8);
        EncodeSix(LoadBigEndian(next + 12), text + 16);
        EncodeSix(LoadBigEndian(next + 18), text + 24);
    }
    for (; left >= 3; left -= 3, next += 3, text += 4) {
        const std::uint32_t group = std::uint32_t{next[0]} << 16 | std::uint32_t{next[1]} << 8 | next[2];
        std::memcpy(text, kPairs[group >> 12].data(), 2);
        std::memcpy(text + 2, kPairs[group & 0xFFF].data(), 2);
    }
    if (left == 0) return;

    const std::uint32_t group = std::uint32_t{next[0]} << 16 | (left == 2 ? std::uint32_t{next[1]} << 8 : 0);
    std::memcpy(text, kPairs[group >> 12].data(), 2);
    text[2] = left == 2 ? kAlphabet[group >> 6 & 63] : '=';
    text[3] = '=';
}

void EncodeBase64(std::string_view bytes, std::string& text) {
    text.resize(Base64Length(bytes.size()));
    EncodeBase64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, text.data());
}

}  // namespace zocrash
