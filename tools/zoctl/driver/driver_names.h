#pragma once

// The service's numbers in words. Pure.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "zoprotector.h"

namespace zoctl {

// By the service manager's numbers, ZOP_START_BOOT first.
inline constexpr std::array kStartTypes = {"boot", "system", "auto", "demand", "disabled"};

// "unknown" for any other number.
[[nodiscard]] const char* StartTypeName(std::uint32_t startType);
[[nodiscard]] std::optional<std::uint32_t> StartTypeNumber(std::string_view name);
[[nodiscard]] const char* StateName(std::uint32_t state);
// "1.2.3.4"
[[nodiscard]] std::string VersionText(std::span<const std::uint32_t> parts);
// Of the driver's file; empty when it has no version.
[[nodiscard]] std::string FileVersionText(const std::array<std::uint32_t, 4>& parts);
[[nodiscard]] std::string FileVersionText(const ZoProtectorDriverStatus& record);
// Altitudes are decimal numbers, with a fraction where a filter had to be squeezed in: 385100, 385100.5.
[[nodiscard]] bool IsAltitude(std::string_view text);

}  // namespace zoctl
