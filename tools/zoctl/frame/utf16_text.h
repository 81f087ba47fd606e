#pragma once

// UTF-16 from driver records as UTF-8, on every platform. Pure.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zoctl {

// A lone surrogate becomes U+FFFD.
[[nodiscard]] std::string Utf8FromUnits(std::span<const std::uint16_t> units);

// The text of a file without its byte order mark. UTF-16 of either order is recognised by its mark, because PowerShell
// redirects in it; everything else is taken for UTF-8.
[[nodiscard]] std::string Utf8OfFile(std::string_view bytes);

}  // namespace zoctl
