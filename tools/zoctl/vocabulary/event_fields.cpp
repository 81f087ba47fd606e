#include <algorithm>
#include <charconv>

#include "field_types.h"
#include "format.h"
#include "text_table.h"
#include "utf16_text.h"
#include "vocabulary.h"
#include "wildcards.h"

namespace zoctl {

namespace {

// Little-endian, and sign-extended for the signed types.
std::uint64_t NumberAt(const EventField& field, std::span<const std::uint8_t> record) {
    std::uint64_t number = 0;
    for (std::size_t i = TraitsOf(field.type).bytes; i-- > 0;)
        number = (number << 8) | record[field.offset + i];
    if (field.type == FieldType::kI32) number = static_cast<std::uint64_t>(static_cast<std::int32_t>(number));
    return number;
}

std::string TextAt(const EventField& field, std::span<const std::uint8_t> record) {
    std::vector<std::uint16_t> units;
    for (std::size_t i = 0; i < field.units; ++i) {
        const std::size_t at = field.offset + 2 * i;
        const auto unit = static_cast<std::uint16_t>(record[at] | (record[at + 1] << 8));
        if (unit == 0) break;
        units.push_back(unit);
    }
    return Utf8FromUnits(units);
}

// 100 ns since 1601, UTC, as "2026-11-25T14:30:00.123Z".
std::string TimeText(std::uint64_t ticks) {
    constexpr std::uint64_t kPerMillisecond = 10000;
    constexpr std::uint64_t kPerDay = 24ull * 60 * 60 * 1000 * kPerMillisecond;
    constexpr std::uint64_t kDaysFromMarch = 306;  // from 1 March 1600 to 1 January 1601
    // Civil date of a day counted from 1 March 1600, where leap days end the year and the 400-year cycle begins.
    const std::uint64_t day = ticks / kPerDay + kDaysFromMarch;
    const std::uint64_t era = day / 146097;
    const std::uint64_t dayOfEra = day % 146097;
    const std::uint64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::uint64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::uint64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const std::uint64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    const std::uint64_t year = 1600 + era * 400 + yearOfEra + (month <= 2 ? 1 : 0);
    const std::uint64_t milliseconds = ticks % kPerDay / kPerMillisecond;
    return zo::Format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", year, month,
                      dayOfYear - (153 * monthFromMarch + 2) / 5 + 1, milliseconds / 3600000, milliseconds / 60000 % 60,
                      milliseconds / 1000 % 60, milliseconds % 1000);
}

std::vector<std::string> FlagNames(const EventField& field, std::uint64_t number) {
    std::vector<std::string> names;
    std::uint64_t rest = number;
    for (const auto& [name, mask] : field.flags) {
        if ((number & mask) != mask) continue;
        names.push_back(name);
        rest &= ~mask;
    }
    if (rest != 0) names.push_back(zo::Format("0x{:X}", rest));
    return names;
}

bool IsSigned(FieldType type) {
    return type == FieldType::kI32 || type == FieldType::kI64;
}

std::string Folded(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return upper;
}

// A decimal number, with a sign, or a hexadecimal one; negative numbers as their two's complement.
std::optional<std::uint64_t> ParseNumber(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return negative ? 0 - value : value;
}

// The number that a value names.
std::optional<std::uint64_t> NumberFor(const NumberNames& names, const std::string& value) {
    for (const auto& [name, number] : names) {
        if (Folded(name) == Folded(value)) return number;
    }
    return ParseNumber(value);
}

bool IsText(const EventField& field) {
    return field.type == FieldType::kUtf16 || field.type == FieldType::kTime;
}

const EventField* Find(const std::vector<EventField>& fields, const std::string& name) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const EventField& field) { return field.name == name; });
    return found == fields.end() ? nullptr : &*found;
}

}  // namespace

std::string NameOf(const NumberNames& names, std::uint64_t number) {
    for (const auto& [name, value] : names) {
        if (value == number) return name;
    }
    return {};
}

Json FieldJson(const EventField& field, std::span<const std::uint8_t> record) {
    if (field.type == FieldType::kUtf16) return TextAt(field, record);
    const std::uint64_t number = NumberAt(field, record);
    if (field.type == FieldType::kTime) return TimeText(number);
    if (!field.flags.empty()) return FlagNames(field, number);
    if (std::string name = NameOf(field.values, number); !name.empty()) return name;
    return IsSigned(field.type) ? Json(static_cast<std::int64_t>(number)) : Json(number);
}

std::string FieldText(const EventField& field, std::span<const std::uint8_t> record) {
    const Json value = FieldJson(field, record);
    if (value.is_string()) return EscapeControls(value.get<std::string>());
    if (!value.is_array()) return value.dump();
    std::string text;
    for (const Json& name : value)
        text += (text.empty() ? "" : "|") + name.get<std::string>();
    return text.empty() ? "-" : text;
}

std::size_t FieldWidth(const EventField& field) {
    const bool named = !field.values.empty() || !field.flags.empty();
    std::size_t width = std::max(field.name.size(), named ? 0 : TraitsOf(field.type).width);
    for (const NumberNames* names : {&field.values, &field.flags}) {
        for (const auto& [name, number] : *names)
            width = std::max(width, name.size());
    }
    return width;
}

std::optional<Condition> ParseCondition(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string_view::npos) return std::nullopt;
    return Condition{std::string(text.substr(0, equals)), std::string(text.substr(equals + 1))};
}

std::string Objection(const Condition& condition, const std::vector<EventField>& fields) {
    const EventField* const field = Find(fields, condition.field);
    if (!field) return zo::Format("The vocabulary has no field '{}'.", EscapeControls(condition.field));
    if (IsText(*field) || NumberFor(field->flags.empty() ? field->values : field->flags, condition.value)) return {};
    return zo::Format("'{}' is not a number, and not a name that the field '{}' has.", EscapeControls(condition.value),
                      field->name);
}

bool Holds(const Condition& condition, const std::vector<EventField>& fields, std::span<const std::uint8_t> record) {
    const EventField* const field = Find(fields, condition.field);
    if (!field) return false;
    if (IsText(*field)) {
        return FitsPattern(Folded(condition.value), Folded(FieldJson(*field, record).get<std::string>()));
    }
    const std::uint64_t number = NumberAt(*field, record);
    const auto wanted = NumberFor(field->flags.empty() ? field->values : field->flags, condition.value);
    if (!wanted) return false;
    return field->flags.empty() || *wanted == 0 ? number == *wanted : (number & *wanted) == *wanted;
}

}  // namespace zoctl
