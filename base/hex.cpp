#include "hex.h"

#include <emmintrin.h>

#include <array>

namespace zo {

namespace {

// A table: branches on a digit's range cannot be predicted, and a signature has hundreds of digits.
constexpr std::array<std::int8_t, 256> kDigitValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::int8_t i = 0; i < 16; ++i) {
        values[static_cast<unsigned char>("0123456789abcdef"[i])] = i;
        values[static_cast<unsigned char>("0123456789ABCDEF"[i])] = i;
    }
    return values;
}();

constexpr int DigitValue(char digit) noexcept {
    return kDigitValues[static_cast<unsigned char>(digit)];
}

// Sixteen characters at once, with what every x64 processor has. The bytes of the result are 0xFF where the character
// is a digit.
constexpr std::size_t kBlock = sizeof(__m128i);
__m128i DigitsOf(const char* text) noexcept {
    const __m128i characters = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const __m128i decimal = _mm_sub_epi8(characters, _mm_set1_epi8('0'));
    const __m128i letter = _mm_sub_epi8(_mm_or_si128(characters, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    return _mm_or_si128(_mm_cmpeq_epi8(_mm_min_epu8(decimal, _mm_set1_epi8(9)), decimal),
                        _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter));
}

}  // namespace

void AppendHex(std::string& text, std::span<const std::uint8_t> bytes, HexCase hexCase) {
    const std::string_view digits = hexCase == HexCase::kLower ? "0123456789abcdef" : "0123456789ABCDEF";
    text.reserve(text.size() + bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0F]);
    }
}

std::string ToHex(std::span<const std::uint8_t> bytes, HexCase hexCase) {
    std::string text;
    AppendHex(text, bytes, hexCase);
    return text;
}

bool IsHex(std::string_view text) noexcept {
    if (text.size() % 2 != 0) return false;
    __m128i digits = _mm_set1_epi8(-1);
    std::size_t at = 0;
    for (; at + kBlock <= text.size(); at += kBlock)
        digits = _mm_and_si128(digits, DigitsOf(text.data() + at));
    if (_mm_movemask_epi8(digits) != 0xFFFF) return false;
    for (; at < text.size(); ++at) {
        if (DigitValue(text[at]) < 0) return false;
    }
    return true;
}

bool DecodeHexExactly(std::string_view text, std::span<std::uint8_t> bytes) {
    if (text.size() != bytes.size() * 2) return false;
    int signs = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const int high = DigitValue(text[2 * i]);
        const int low = DigitValue(text[2 * i + 1]);
        signs |= high | low;
        bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return signs >= 0;
}

bool DecodeHex(std::string_view text, std::vector<std::uint8_t>& bytes) {
    bytes.resize(text.size() / 2);
    if (text.size() % 2 == 0 && DecodeHexExactly(text, bytes)) return true;
    bytes.clear();
    return false;
}

}  // namespace zo
