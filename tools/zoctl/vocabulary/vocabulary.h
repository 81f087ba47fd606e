#pragma once

// The names that a driver's author gives to what the library hands on unread: fields of events, counters, status pairs
// and values of the signature policy. docs/vocabulary.md describes the file. Pure.

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "json_reader.h"

namespace zoctl {

inline constexpr unsigned kVocabularyVersion = 1;

enum class FieldType { kU8, kU16, kU32, kU64, kI32, kI64, kTime, kUtf16 };

// The names of numbers, in the file's order.
using NumberNames = std::vector<std::pair<std::string, std::uint64_t>>;

struct EventField {
    std::string name;
    std::size_t offset = 0;
    FieldType type = FieldType::kU32;
    std::size_t units = 0;  // of text
    NumberNames values;     // an enumeration
    NumberNames flags;      // masks
    bool column = true;     // shown in tables
};

enum class EventRing { kMain, kRegistry };
inline constexpr std::size_t kEventRings = 2;

struct PairNames {
    std::string flag;
    std::string count;
};

struct Vocabulary {
    std::array<std::vector<EventField>, kEventRings> events;
    std::map<std::size_t, std::string> counters;  // by byte offset
    std::vector<PairNames> status;                // none or four
    NumberNames modes;
    NumberNames minLevels;

    [[nodiscard]] const std::vector<EventField>& Fields(EventRing ring) const {
        return events[static_cast<std::size_t>(ring)];
    }
};

// Finds every mistake. The result is to be used only when there is none.
[[nodiscard]] Vocabulary ReadVocabulary(std::string_view text, std::vector<Mistake>& mistakes);

// "" when the number has no name.
[[nodiscard]] std::string NameOf(const NumberNames& names, std::uint64_t number);

// A name for an enumeration's value that has one, a list of names for flags, ISO 8601 for a time, text, else a number.
[[nodiscard]] Json FieldJson(const EventField& field, std::span<const std::uint8_t> record);
// The same for people: flags joined by "|".
[[nodiscard]] std::string FieldText(const EventField& field, std::span<const std::uint8_t> record);
// As many cells as most of the field's values need.
[[nodiscard]] std::size_t FieldWidth(const EventField& field);

// One "FIELD=VALUE": a number (also 0x...) or a name of it, one of the flags, or a text in which * and ? are wildcards,
// ignoring the case of ASCII letters.
struct Condition {
    std::string field;
    std::string value;
};
[[nodiscard]] std::optional<Condition> ParseCondition(std::string_view text);
// Why the condition can never hold for these fields; "" when it can.
[[nodiscard]] std::string Objection(const Condition& condition, const std::vector<EventField>& fields);
// False when the fields lack the condition's.
[[nodiscard]] bool Holds(const Condition& condition, const std::vector<EventField>& fields,
                         std::span<const std::uint8_t> record);

}  // namespace zoctl
