#pragma once

// The messages that tell a caller more than the status and the counters. The reporter formats them and zoctl takes them
// apart with the same constants, so that the two cannot drift; zocrashreport.h lists them for callers.

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace zocrash {

inline constexpr char kDumpFolderMessage[] = "Minidump dir: {}";
inline constexpr char kDumpsFoundMessage[] = "Found {} new minidump(s)";
inline constexpr char kDumpAnalysedMessage[] = "Dump {} matched=[{}] upload={}";
inline constexpr char kDumpFailedMessage[] = "Analyze failed: {} (0x{:08x})";
inline constexpr char kEngineFailedMessage[] = "DbgEng load failed: 0x{:08x}";
inline constexpr char kInternetFailedMessage[] = "Protocol init failed: 0x{:08x}";
inline constexpr char kCopyFailedMessage[] = "Driver-side copy failed: 0x{:08x} (files={}, dirs={}, skipped={})";
inline constexpr char kNowhereToStageMessage[] = "Access denied to minidump dir and %TEMP% is unavailable; aborting";

// The parts of a message that were formatted into the placeholders, in their order; empty when the message does not
// have this format. The search runs from the right: only the first part, a path, can hold text of the format itself.
[[nodiscard]] inline std::vector<std::string_view> MessageParts(std::string_view format, std::string_view message) {
    std::vector<std::string_view> parts;
    for (std::size_t open; (open = format.rfind('{')) != std::string_view::npos;) {
        const std::string_view after = format.substr(format.find('}', open) + 1);
        const std::size_t end = after.empty() ? message.size() : message.rfind(after);
        // The text at the very end has to end the message, too.
        if (end == std::string_view::npos || (parts.empty() && end + after.size() != message.size())) return {};
        if (!parts.empty()) parts.back().remove_prefix(end + after.size());
        message = message.substr(0, end);
        format = format.substr(0, open);
        parts.push_back(message);
    }
    if (parts.empty() || !message.starts_with(format)) return {};
    parts.back().remove_prefix(format.size());
    std::reverse(parts.begin(), parts.end());
    return parts;
}

}  // namespace zocrash
