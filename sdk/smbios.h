#pragma once

// The system UUID out of a raw SMBIOS firmware table, as GetSystemFirmwareTable('RSMB') delivers it. The table comes
// from firmware or a hypervisor and may be broken or hostile in any way. Pure.

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace zop {

using ZopSystemUuid = std::array<std::uint8_t, 16>;

// Empty when the table has no system structure with a UUID, is malformed before it, or the UUID is not set (all bytes
// 0x00 or all 0xFF).
[[nodiscard]] std::optional<ZopSystemUuid> ZopFindSystemUuid(std::span<const std::uint8_t> rawTable) noexcept;

}  // namespace zop
