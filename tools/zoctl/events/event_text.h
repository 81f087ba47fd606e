#pragma once

// Event records belong to the driver and nobody here knows their fields. What can be shown of them are their bytes and
// the UTF-16 text in them. Pure.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zoctl {

// Runs of at least four printable UTF-16 units that end with a zero unit or with the record, as UTF-8. Records are
// packed, so a run may begin at an odd byte. Runs of no one alphabet with hardly a Latin letter are taken for numbers.
[[nodiscard]] std::vector<std::string> FindStrings(std::span<const std::uint8_t> record);

}  // namespace zoctl
