#pragma once

// The types that an event's field may have. Pure.

#include <cstdint>
#include <limits>

#include "vocabulary.h"

namespace zoctl {

struct FieldTypeTraits {
    FieldType type;
    const char* name;
    std::size_t bytes;      // of the number; text has its units instead
    std::uint64_t highest;  // number that a name may stand for; 0 where there are no names
    std::size_t width;      // cells of the longest value
};

// In the order of FieldType.
inline constexpr FieldTypeTraits kFieldTypes[] = {
    {FieldType::kU8, "u8", 1, std::numeric_limits<std::uint8_t>::max(), 3},
    {FieldType::kU16, "u16", 2, std::numeric_limits<std::uint16_t>::max(), 5},
    {FieldType::kU32, "u32", 4, std::numeric_limits<std::uint32_t>::max(), 10},
    {FieldType::kU64, "u64", 8, std::numeric_limits<std::uint64_t>::max(), 20},
    {FieldType::kI32, "i32", 4, 0, 11},
    {FieldType::kI64, "i64", 8, 0, 20},
    {FieldType::kTime, "time", 8, 0, 24},
    {FieldType::kUtf16, "utf16", 0, 0, 0},
};

[[nodiscard]] constexpr const FieldTypeTraits& TraitsOf(FieldType type) {
    return kFieldTypes[static_cast<std::size_t>(type)];
}

}  // namespace zoctl
