#pragma once

// Input files in JSON, read so that every mistake is found and named by its place. Pure.

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zoctl {

using Json = nlohmann::ordered_json;

struct Mistake {
    std::string pointer;  // JSON pointer; "" is the whole file
    std::string message;
};

// Duplicate members are mistakes too; nothing when the text is not JSON.
[[nodiscard]] std::optional<Json> ParseJson(std::string_view bytes, std::vector<Mistake>& mistakes);
[[nodiscard]] std::string MemberPointer(const std::string& at, std::string_view name);

// What readers of such files share. Each check records its own mistakes.
class JsonReader {
  protected:
    explicit JsonReader(std::vector<Mistake>& mistakes) : mistakes_(mistakes) {}

    void Say(const std::string& pointer, std::string message) { mistakes_.push_back({pointer, std::move(message)}); }
    // Members beyond the allowed ones are mistakes; they do not change the answer.
    bool IsObject(const Json& value, const std::string& at, std::initializer_list<const char*> allowed);
    std::optional<std::uint64_t> Number(const Json& value, const std::string& at, std::uint64_t highest);
    std::optional<std::string> Text(const Json& value, const std::string& at);

  private:
    std::vector<Mistake>& mistakes_;
};

}  // namespace zoctl
