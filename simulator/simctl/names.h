#pragma once

// The words of simctl's command line for the numbers of the two interfaces, and back.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace simctl {

struct Name {
    std::string_view text;
    std::uint32_t value;
};

// kind is what an error message calls one of the names. Where numbers are allowed, decimal and 0x... are.
struct Vocabulary {
    std::string_view kind;
    std::span<const Name> names;
    bool numbersToo;

    [[nodiscard]] std::optional<std::uint32_t> Find(std::string_view text) const;
    // The name, or the number in hexadecimal.
    [[nodiscard]] std::string TextOf(std::uint32_t value) const;
};

extern const Vocabulary kTables;
extern const Vocabulary kRings;
extern const Vocabulary kResumes;
extern const Vocabulary kCommands;
extern const Vocabulary kStatuses;
extern const Vocabulary kCounters;

// Decimal or 0x...; nothing when the text is not a number of 32 bits.
[[nodiscard]] std::optional<std::uint32_t> ParseNumber(std::string_view text);

// Replaces a name by its number before the option's value is converted.
[[nodiscard]] CLI::Validator Named(const Vocabulary& vocabulary);

}  // namespace simctl
