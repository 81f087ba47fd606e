#pragma once

// Base64 in the standard alphabet with "=" padding and no line breaks: the form in which a dump and the engine's text
// travel inside the crash protocol document. Encoding only; the server decodes.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zocrash {

[[nodiscard]] constexpr std::size_t Base64Length(std::size_t byteCount) noexcept {
    return (byteCount + 2) / 3 * 4;
}

// Writes exactly Base64Length(bytes.size()) characters and no terminator.
void EncodeBase64(std::span<const std::uint8_t> bytes, char* text) noexcept;

// The same with instructions that every processor has; also encodes what a faster routine leaves over.
void EncodeBase64Portable(std::span<const std::uint8_t> bytes, char* text) noexcept;

// Replaces the text and reuses its memory if that is large enough.
void EncodeBase64(std::string_view bytes, std::string& text);

}  // namespace zocrash
