#include "signer_messages.h"

#include <charconv>

#include "message_beginnings.h"

namespace zoctl {

namespace {

struct MessageRow {
    std::string_view beginning;
    const char* kind;
    const char* detail;
    std::string_view afterPath;  // empty where the path ends the message
};

// A beginning that begins another one comes after it.
constexpr MessageRow kMessageRows[] = {
    {zosigner::kMissingShortcut, "missing", "shortcut", ""},
    {zosigner::kMissingFile, "missing", "file", ""},
    {zosigner::kHashMismatch, "bad", "contents changed", ""},
    {zosigner::kInvalidSignature, "bad", "signature invalid", zosigner::kBeforeSignatureStatus},
    {zosigner::kExtraLink, "extra", "link", ""},
    {zosigner::kExtraFolder, "extra", "folder", ""},
    {zosigner::kExtraFile, "extra", "file", ""},
    {zosigner::kUnseenFolder, "unreadable", "folder cannot be listed", zosigner::kBeforeErrorText},
    {zosigner::kSkippedLink, "skipped link", "links are not sealed", ""},
    {zosigner::kHashFailed, "unreadable", "cannot be read", zosigner::kBeforeStatus},
    {zosigner::kSignFailed, "unreadable", "cannot be signed", zosigner::kBeforeStatus},
    {zosigner::kControlCharacterName, "unlistable", "control characters in the name", ""},
    {zosigner::kNotUtf16Name, "unlistable", "name is not valid UTF-16", ""},
    {zosigner::kListingFailed, "unreadable", "folder cannot be listed", ""},
};

constexpr std::uint32_t kWarning = 1;

}  // namespace

std::optional<SignerFinding> FindingOf(std::uint32_t level, std::string_view message) {
    for (const MessageRow& row : kMessageRows) {
        if (!message.starts_with(row.beginning)) continue;
        std::string_view path = message.substr(row.beginning.size());
        if (!row.afterPath.empty()) path = path.substr(0, path.rfind(row.afterPath));
        return SignerFinding{row.kind, row.detail, std::string(path)};
    }
    if (level == kWarning) return SignerFinding{"warning", "", std::string(message)};
    return std::nullopt;
}

std::uint64_t FilesFound(std::string_view message) {
    std::uint64_t files = 0;
    if (message.starts_with(zosigner::kFilesFound)) {
        message.remove_prefix(zosigner::kFilesFound.size());
        std::from_chars(message.data(), message.data() + message.size(), files);
    }
    return files;
}

}  // namespace zoctl
