#pragma once

// A rule table of the driver as the library returns it: entries in bytes, which the rules room decodes.

#include <cstdint>
#include <span>
#include <vector>

#include "rule_tables.h"

namespace zoctl {

struct TableEntries {
    std::vector<std::uint8_t> bytes;
    std::uint32_t entrySize = 0;
    std::uint32_t count = 0;
    std::uint32_t total = 0;  // as the driver counts

    [[nodiscard]] std::span<const std::uint8_t> Entry(std::uint32_t index) const {
        return std::span(bytes).subspan(std::size_t{index} * entrySize, entrySize);
    }
};

// Reads the whole table: one that grows between two calls is read again. Needs the open channel.
[[nodiscard]] std::int32_t ReadEntries(Table table, TableEntries& entries);

}  // namespace zoctl
