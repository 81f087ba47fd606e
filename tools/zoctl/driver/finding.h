#pragma once

// One thing that the doctor looked at. Pure.

#include <cstdint>
#include <string>

namespace zoctl {

// Win32 errors that findings are made of, for code without windows.h.
inline constexpr std::uint32_t kErrorFileNotFound = 2;
inline constexpr std::uint32_t kErrorPathNotFound = 3;
inline constexpr std::uint32_t kErrorAccessDenied = 5;
inline constexpr std::uint32_t kErrorSharingViolation = 32;
inline constexpr std::uint32_t kErrorReparsePointEncountered = 4395;

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
