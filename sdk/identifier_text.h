#pragma once

// Identifiers that devices give as padded ASCII text, and their concatenation for a digest. Pure.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace zop {

// The text from offset up to its terminator or the end of the bytes, without the blanks around it.
[[nodiscard]] std::string_view ZopTextAt(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept;

// The serial number that a storage device descriptor names. returned counts the bytes of it that the device filled; the
// rest of the buffer is zero. Empty when there is none.
[[nodiscard]] std::string_view ZopSerialOfDescriptor(std::span<const std::uint8_t> buffer,
                                                     std::size_t returned) noexcept;

struct ZopIdentifier {
    std::string_view label;
    std::vector<std::uint8_t> value;  // empty: the machine has none
};

struct ZopMixedIdentifiers {
    std::vector<std::uint8_t> input;
    int count = 0;
};

// Concatenates the identifiers that are present, each as its label, a unit separator and its bytes.
[[nodiscard]] ZopMixedIdentifiers ZopMixIdentifiers(std::span<const ZopIdentifier> identifiers);

}  // namespace zop
