#include "json_reader.h"

#include <algorithm>
#include <set>

#include "format.h"
#include "utf16_text.h"

namespace zoctl {

namespace {

std::string Escaped(std::string_view name) {
    std::string pointer;
    for (const char c : name) {
        if (c == '~') {
            pointer += "~0";
        } else if (c == '/') {
            pointer += "~1";
        } else {
            pointer += c;
        }
    }
    return pointer;
}

// A duplicate member: JSON parsers keep one of the two silently.
class RepeatedMembers {
  public:
    explicit RepeatedMembers(std::vector<Mistake>& mistakes) : mistakes_(mistakes) {}

    bool operator()(int, Json::parse_event_t event, Json& value) {
        using Event = Json::parse_event_t;
        if (event == Event::key) {
            open_.back().at = value.get<std::string>();
            if (!open_.back().names.insert(open_.back().at).second) {
                mistakes_.push_back({Pointer(), "duplicate member"});
            }
        } else if (event == Event::object_start || event == Event::array_start) {
            open_.push_back({event == Event::array_start, 0, {}, {}});
        } else {
            if (event != Event::value) open_.pop_back();
            if (!open_.empty() && open_.back().isArray) ++open_.back().index;
        }
        return true;
    }

  private:
    struct Container {
        bool isArray;
        std::size_t index;            // of the element that is being read, in an array
        std::string at;               // the member that is being read, in an object
        std::set<std::string> names;  // those that were there before
    };

    [[nodiscard]] std::string Pointer() const {
        std::string pointer;
        for (const Container& one : open_)
            pointer += "/" + (one.isArray ? zo::Format("{}", one.index) : Escaped(one.at));
        return pointer;
    }

    std::vector<Container> open_;
    std::vector<Mistake>& mistakes_;
};

}  // namespace

std::optional<Json> ParseJson(std::string_view bytes, std::vector<Mistake>& mistakes) {
    try {
        return Json::parse(Utf8OfFile(bytes), RepeatedMembers(mistakes));
    } catch (const Json::exception& error) {  // of its grammar, or of a number that no type holds
        // The parser's words carry line and column, behind a prefix of its own.
        const std::string words = error.what();
        const std::size_t start = words.find("] ");
        mistakes.push_back({"", "cannot be read as JSON: " + words.substr(start == std::string::npos ? 0 : start + 2)});
        return std::nullopt;
    }
}

std::string MemberPointer(const std::string& at, std::string_view name) {
    return at + "/" + Escaped(name);
}

bool JsonReader::IsObject(const Json& value, const std::string& at, std::initializer_list<const char*> allowed) {
    if (!value.is_object()) {
        Say(at, "must be an object");
        return false;
    }
    for (const auto& member : value.items()) {
        const std::string& name = member.key();
        const auto known = [&name](const char* other) { return name == other; };
        if (std::none_of(allowed.begin(), allowed.end(), known)) {
            Say(at + "/" + Escaped(name), "is not a known member");
        }
    }
    return true;
}

std::optional<std::uint64_t> JsonReader::Number(const Json& value, const std::string& at, std::uint64_t highest) {
    if (value.is_number_unsigned() && value.get<std::uint64_t>() <= highest) return value.get<std::uint64_t>();
    Say(at, zo::Format("must be a whole number from 0 to {}", highest));
    return std::nullopt;
}

std::optional<std::string> JsonReader::Text(const Json& value, const std::string& at) {
    if (!value.is_string()) {
        Say(at, "must be text");
        return std::nullopt;
    }
    auto text = value.get<std::string>();
    if (std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; })) {
        Say(at, "must not hold control characters");
        return std::nullopt;
    }
    return text;
}

}  // namespace zoctl
