#include "smbios.h"

#include <algorithm>
#include <cstddef>

namespace zop {

namespace {

using Bytes = std::span<const std::uint8_t>;

// The raw table begins with the calling method, the version and, from byte 4 on, the length of what follows.
constexpr std::size_t kTableHeaderSize = 8;
constexpr std::size_t kLengthOffset = 4;

// Every structure begins with its type, the length of its formatted part and a handle of two bytes.
constexpr std::size_t kStructureHeaderSize = 4;
constexpr std::uint8_t kSystemInformation = 1;
constexpr std::size_t kUuidOffset = 8;
constexpr std::size_t kLengthWithUuid = 25;  // since SMBIOS 2.1; it counts the wake-up type behind the UUID

Bytes StructureData(Bytes table) noexcept {
    if (table.size() < kTableHeaderSize) return {};
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < 4; ++i)
        length |= std::uint32_t{table[kLengthOffset + i]} << (8 * i);
    table = table.subspan(kTableHeaderSize);
    return length <= table.size() ? table.first(length) : Bytes();
}

// A formatted part is followed by its strings and two zero bytes, which are there even without strings. Empty when the
// end is missing.
Bytes BehindStrings(Bytes data) noexcept {
    for (std::size_t i = 0; i + 1 < data.size(); ++i) {
        if (data[i] == 0 && data[i + 1] == 0) return data.subspan(i + 2);
    }
    return {};
}

bool IsUnset(const ZopSystemUuid& uuid) noexcept {
    const std::uint8_t first = uuid[0];
    return (first == 0x00 || first == 0xFF) &&
           std::all_of(uuid.begin(), uuid.end(), [&](auto b) { return b == first; });
}

}  // namespace

std::optional<ZopSystemUuid> ZopFindSystemUuid(std::span<const std::uint8_t> rawTable) noexcept {
    Bytes data = StructureData(rawTable);
    while (data.size() >= kStructureHeaderSize) {
        const std::uint8_t type = data[0];
        const std::size_t length = data[1];
        if (length < kStructureHeaderSize || length > data.size()) return std::nullopt;
        if (type == kSystemInformation && length >= kLengthWithUuid) {
            ZopSystemUuid uuid{};
            std::copy_n(data.begin() + kUuidOffset, uuid.size(), uuid.begin());
            return IsUnset(uuid) ? std::nullopt : std::optional(uuid);
        }
        data = BehindStrings(data.subspan(length));
    }
    return std::nullopt;
}

}  // namespace zop
