#include <algorithm>
#include <cstddef>
#include <limits>
#include <set>

#include "field_types.h"
#include "format.h"
#include "vocabulary.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

constexpr std::size_t kRecordSizes[kEventRings] = {sizeof(ZopEventRecord), sizeof(ZopRegistryEventRecord)};
constexpr const char* kRingNames[kEventRings] = {"main", "registry"};
constexpr std::size_t kStatusPairs = 4;

// Names are words of "--where" and of JSON.
bool IsName(std::string_view name) {
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return !name.empty() && letter(name[0]) && std::all_of(name.begin(), name.end(), [&](char c) {
        return letter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

class VocabularyReader : JsonReader {
  public:
    explicit VocabularyReader(std::vector<Mistake>& mistakes) : JsonReader(mistakes) {}

    Vocabulary Read(const Json& file);

  private:
    std::string Name(const Json& object, const char* member, const std::string& at);
    NumberNames Names(const Json& object, const char* member, const std::string& at, std::uint64_t highest);
    void Type(const Json& value, const std::string& at, EventField& field);
    EventField Field(const Json& value, const std::string& at, std::size_t recordSize);
    void Events(const Json& file, Vocabulary& vocabulary);
    void Counters(const Json& file, Vocabulary& vocabulary);
    void Status(const Json& file, Vocabulary& vocabulary);
    void Policy(const Json& file, Vocabulary& vocabulary);
};

std::string VocabularyReader::Name(const Json& object, const char* member, const std::string& at) {
    if (!object.contains(member)) {
        Say(at, zo::Format("must have a \"{}\"", member));
        return {};
    }
    const auto name = Text(object[member], at + "/" + member);
    if (name && !IsName(*name)) {
        Say(at + "/" + member, "must be a letter, then letters, digits, \"-\" and \"_\"");
    }
    return name.value_or("");
}

// {"NAME": number, ...}
NumberNames VocabularyReader::Names(const Json& object, const char* member, const std::string& at,
                                    std::uint64_t highest) {
    NumberNames names;
    if (!object.contains(member)) return names;
    const std::string here = at + "/" + member;
    const Json& list = object[member];
    if (!list.is_object()) {
        Say(here, "must be an object");
        return names;
    }
    for (const auto& one : list.items()) {
        const std::string place = MemberPointer(here, one.key());
        if (!IsName(one.key())) Say(place, "must be named by a letter, then letters, digits, \"-\" and \"_\"");
        const auto number = Number(one.value(), place, highest);
        if (!number) continue;
        if (!NameOf(names, *number).empty()) Say(place, "has the same number as " + NameOf(names, *number));
        names.emplace_back(one.key(), *number);
    }
    return names;
}

void VocabularyReader::Type(const Json& value, const std::string& at, EventField& field) {
    if (!value.contains("type")) {
        Say(at, "must have a \"type\"");
        return;
    }
    const auto name = Text(value["type"], at + "/type");
    if (!name) return;
    const auto found = std::find_if(std::begin(kFieldTypes), std::end(kFieldTypes),
                                    [&](const FieldTypeTraits& type) { return *name == type.name; });
    if (found == std::end(kFieldTypes)) {
        Say(at + "/type", "must be u8, u16, u32, u64, i32, i64, time or utf16");
        return;
    }
    field.type = found->type;
}

EventField VocabularyReader::Field(const Json& value, const std::string& at, std::size_t recordSize) {
    EventField field;
    if (!IsObject(value, at, {"name", "offset", "type", "units", "values", "flags", "column"})) return field;
    field.name = Name(value, "name", at);
    Type(value, at, field);
    const FieldTypeTraits& type = TraitsOf(field.type);
    if (field.type == FieldType::kUtf16) {
        if (!value.contains("units")) {
            Say(at, "must have \"units\", the most that the text takes");
        } else if (const auto units = Number(value["units"], at + "/units", recordSize / 2)) {
            field.units = static_cast<std::size_t>(*units);
        }
    } else if (value.contains("units")) {
        Say(at + "/units", "is allowed with the type \"utf16\" only");
    }
    if (!value.contains("offset")) {
        Say(at, "must have an \"offset\"");
    } else if (const auto offset = Number(value["offset"], at + "/offset", recordSize - 1)) {
        field.offset = static_cast<std::size_t>(*offset);
        if (field.offset + type.bytes + 2 * field.units > recordSize) {
            Say(at, zo::Format("ends behind the record's {} bytes", recordSize));
        }
    }
    field.values = Names(value, "values", at, type.highest);
    field.flags = Names(value, "flags", at, type.highest);
    for (const auto& [name, mask] : field.flags) {
        if (mask == 0) Say(MemberPointer(at + "/flags", name), "must have at least one bit");
    }
    if (value.contains("values") && value.contains("flags")) Say(at, "must not have both \"values\" and \"flags\"");
    for (const char* member : {"values", "flags"}) {
        if (value.contains(member) && type.highest == 0) {
            Say(at + "/" + member, "is allowed with the types u8, u16, u32 and u64 only");
        }
    }
    if (!value.contains("column")) return field;
    if (!value["column"].is_boolean()) Say(at + "/column", "must be true or false");
    field.column = value["column"] != false;
    return field;
}

void VocabularyReader::Events(const Json& file, Vocabulary& vocabulary) {
    if (!file.contains("events") || !IsObject(file["events"], "/events", {"main", "registry"})) return;
    for (std::size_t ring = 0; ring < kEventRings; ++ring) {
        if (!file["events"].contains(kRingNames[ring])) continue;
        const Json& fields = file["events"][kRingNames[ring]];
        const std::string at = zo::Format("/events/{}", kRingNames[ring]);
        if (!fields.is_array()) {
            Say(at, "must be a list");
            continue;
        }
        std::set<std::string> names;
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const std::string place = zo::Format("{}/{}", at, i);
            vocabulary.events[ring].push_back(Field(fields[i], place, kRecordSizes[ring]));
            const std::string& name = vocabulary.events[ring].back().name;
            if (!name.empty() && !names.insert(name).second) Say(place + "/name", "is the name of another field too");
        }
    }
}

void VocabularyReader::Counters(const Json& file, Vocabulary& vocabulary) {
    for (const auto& [name, offset] : Names(file, "counters", "", sizeof(ZopStats) - 4)) {
        const bool known = offset == 0 || offset == offsetof(ZopStats, unsignedBypassAttempts);
        if (offset % 4 != 0 || known) {
            Say(MemberPointer("/counters", name),
                "must be the byte offset of a counter: a multiple of 4 from 4 to 72, but not 52");
        }
        vocabulary.counters[static_cast<std::size_t>(offset)] = name;
    }
}

void VocabularyReader::Status(const Json& file, Vocabulary& vocabulary) {
    if (!file.contains("status")) return;
    const Json& pairs = file["status"];
    if (!pairs.is_array() || pairs.size() != kStatusPairs) {
        Say("/status", zo::Format("must be a list of {} pairs", kStatusPairs));
        return;
    }
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const std::string at = zo::Format("/status/{}", i);
        if (!IsObject(pairs[i], at, {"flag", "count"})) continue;
        PairNames names;
        names.flag = Name(pairs[i], "flag", at);
        names.count = Name(pairs[i], "count", at);
        vocabulary.status.push_back(std::move(names));
    }
}

void VocabularyReader::Policy(const Json& file, Vocabulary& vocabulary) {
    if (!file.contains("policy") || !IsObject(file["policy"], "/policy", {"mode", "minLevel"})) return;
    constexpr std::uint64_t kHighest = std::numeric_limits<std::uint8_t>::max();
    vocabulary.modes = Names(file["policy"], "mode", "/policy", kHighest);
    vocabulary.minLevels = Names(file["policy"], "minLevel", "/policy", kHighest);
}

Vocabulary VocabularyReader::Read(const Json& file) {
    Vocabulary vocabulary;
    if (!IsObject(file, "", {"$schema", "version", "comment", "events", "counters", "status", "policy"})) {
        return vocabulary;
    }
    if (!file.contains("version")) {
        Say("", "must have a \"version\"");
    } else if (file["version"] != kVocabularyVersion) {
        Say("/version", zo::Format("must be {}", kVocabularyVersion));
    }
    for (const char* name : {"$schema", "comment"}) {
        if (file.contains(name) && !file[name].is_string()) Say(std::string("/") + name, "must be text");
    }
    Events(file, vocabulary);
    Counters(file, vocabulary);
    Status(file, vocabulary);
    Policy(file, vocabulary);
    return vocabulary;
}

}  // namespace

Vocabulary ReadVocabulary(std::string_view text, std::vector<Mistake>& mistakes) {
    const std::optional<Json> file = ParseJson(text, mistakes);
    return file ? VocabularyReader(mistakes).Read(*file) : Vocabulary{};
}

}  // namespace zoctl
