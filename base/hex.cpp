#include "hex.h"

#include <cstring>

namespace zo {

namespace {

constexpr int DigitValue(char digit) noexcept {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

constexpr std::uint64_t EachByte(std::uint8_t value) noexcept {
    return 0x0101010101010101u * value;
}

// Eight characters at once: the top bit of each byte of the result is set where the character is no digit. The
// additions move the bounds of a range to 0x80, and stay within their byte because the top bits are cleared before.
constexpr std::uint64_t NotDigits(std::uint64_t characters) noexcept {
    const std::uint64_t low = characters & EachByte(0x7F);
    const std::uint64_t decimal = (low + EachByte(0x80 - '0')) & ~(low + EachByte(0x80 - '9' - 1));
    const std::uint64_t folded = low | EachByte(0x20);
    const std::uint64_t letter = (folded + EachByte(0x80 - 'a')) & ~(folded + EachByte(0x80 - 'f' - 1));
    return (characters | ~(decimal | letter)) & EachByte(0x80);
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
    std::uint64_t wrong = 0;
    std::size_t at = 0;
    for (; at + sizeof(wrong) <= text.size(); at += sizeof(wrong)) {
        std::uint64_t characters = 0;
        std::memcpy(&characters, text.data() + at, sizeof(characters));
        wrong |= NotDigits(characters);
    }
    if (wrong != 0) return false;
    for (; at < text.size(); ++at) {
        if (DigitValue(text[at]) < 0) return false;
    }
    return true;
}

bool DecodeHexExactly(std::string_view text, std::span<std::uint8_t> bytes) {
    if (text.size() != bytes.size() * 2) return false;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const int high = DigitValue(text[2 * i]);
        const int low = DigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) return false;
        bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return true;
}

bool DecodeHex(std::string_view text, std::vector<std::uint8_t>& bytes) {
    bytes.resize(text.size() / 2);
    if (text.size() % 2 == 0 && DecodeHexExactly(text, bytes)) return true;
    bytes.clear();
    return false;
}

}  // namespace zo
