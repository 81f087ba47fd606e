#pragma once

// Hexadecimal text of bytes, most significant digit of each byte first. Pure: no platform behind it.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zo {

enum class HexCase { kLower, kUpper };

// Appends two digits for each byte.
void AppendHex(std::string& text, std::span<const std::uint8_t> bytes, HexCase hexCase = HexCase::kLower);

[[nodiscard]] std::string ToHex(std::span<const std::uint8_t> bytes, HexCase hexCase = HexCase::kLower);

// Whether DecodeHex would accept the text, at a small part of its cost.
[[nodiscard]] bool IsHex(std::string_view text) noexcept;

// Both cases are accepted. False, with an empty result, for an odd number of digits or any other character; the empty
// text decodes to nothing and is accepted.
[[nodiscard]] bool DecodeHex(std::string_view text, std::vector<std::uint8_t>& bytes);

// The same into a field of fixed size, which the text must fill exactly.
[[nodiscard]] bool DecodeHexExactly(std::string_view text, std::span<std::uint8_t> bytes);

}  // namespace zo
