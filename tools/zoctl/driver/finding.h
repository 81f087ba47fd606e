#pragma once

// One thing that the doctor looked at. Pure.

#include <string>

namespace zoctl {

enum class Severity { kGood, kNote, kWrong };

struct Finding {
    const char* subject;
    Severity severity;
    std::string text;
    std::string remedy;  // empty when there is nothing to do
};

[[nodiscard]] inline Finding Good(const char* subject, std::string text) {
    return {subject, Severity::kGood, std::move(text), {}};
}
[[nodiscard]] inline Finding Note(const char* subject, std::string text, std::string remedy) {
    return {subject, Severity::kNote, std::move(text), std::move(remedy)};
}
[[nodiscard]] inline Finding Wrong(const char* subject, std::string text, std::string remedy) {
    return {subject, Severity::kWrong, std::move(text), std::move(remedy)};
}

// "ok", "note", "wrong"
[[nodiscard]] constexpr const char* SeverityName(Severity severity) {
    constexpr const char* kNames[] = {"ok", "note", "wrong"};
    return kNames[static_cast<int>(severity)];
}

}  // namespace zoctl
