#include "hex.h"

namespace zo {

namespace {

constexpr int DigitValue(char digit) noexcept {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
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
