#pragma once

// What the signer's messages say, as facts: it reports findings and unreadable files through its log callback only.
// Pure.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zoctl {

inline constexpr std::string_view kSkippedLink = "skipped link";

struct SignerFinding {
    const char* kind;  // "extra", "missing", "bad", "unreadable", "unlistable", "skipped link", "warning"
    const char* detail;
    std::string path;  // the whole message where it names no path
};

// Nothing for messages of progress and of failure.
[[nodiscard]] std::optional<SignerFinding> FindingOf(std::uint32_t level, std::string_view message);

// The number of files that signing begins with; 0 in any other message.
[[nodiscard]] std::uint64_t FilesFound(std::string_view message);

}  // namespace zoctl
