#pragma once

// UTF-16 from driver records as UTF-8, on every platform. Pure.

#include <cstdint>
#include <span>
#include <string>

namespace zoctl {

// A lone surrogate becomes U+FFFD.
[[nodiscard]] std::string Utf8FromUnits(std::span<const std::uint16_t> units);

}  // namespace zoctl
