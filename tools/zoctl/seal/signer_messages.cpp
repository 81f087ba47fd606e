#include "signer_messages.h"

#include <charconv>

namespace zoctl {

namespace {

struct MessageRow {
    std::string_view begin;
    const char* kind;
    const char* detail;
    std::string_view end;  // what follows the path, up to what varies; empty: nothing does
};

// The longer beginnings come before those that they begin with.
constexpr MessageRow kMessageRows[] = {
    {"[MISS] shortcut anchor: ", "missing", "shortcut", ""},
    {"[MISS] ", "missing", "file", ""},
    {"[BAD ] hash mismatch: ", "bad", "contents changed", ""},
    {"[BAD ] signature invalid: ", "bad", "signature invalid", " (0x"},
    {"[XTRA] new mklink (reparse point) created in sealed dir: ", "extra", "link", ""},
    {"[XTRA] unexpected dir  in sealed dir: ", "extra", "folder", ""},
    {"[XTRA] unexpected file in sealed dir: ", "extra", "file", ""},
    {"skipping reparse point: ", "skipped link", "links are not sealed", ""},
    {"hash '", "unreadable", "cannot be read", "' -> 0x"},
    {"sign '", "unreadable", "cannot be signed", "' -> 0x"},
    {"size '", "unreadable", "size unknown", "': "},
    {"iter: ", "unreadable", "folder cannot be listed", ""},
};

constexpr std::uint32_t kWarning = 1;

}  // namespace

std::optional<SignerFinding> FindingOf(std::uint32_t level, std::string_view message) {
    for (const MessageRow& row : kMessageRows) {
        if (!message.starts_with(row.begin)) continue;
        std::string_view path = message.substr(row.begin.size());
        if (!row.end.empty()) path = path.substr(0, path.rfind(row.end));
        return SignerFinding{row.kind, row.detail, std::string(path)};
    }
    if (level == kWarning) return SignerFinding{"warning", "", std::string(message)};
    return std::nullopt;
}

std::uint64_t FilesFound(std::string_view message) {
    constexpr std::string_view kBegin = "Found ";
    std::uint64_t files = 0;
    if (message.starts_with(kBegin)) {
        std::from_chars(message.data() + kBegin.size(), message.data() + message.size(), files);
    }
    return files;
}

}  // namespace zoctl
