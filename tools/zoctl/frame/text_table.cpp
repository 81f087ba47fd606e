#include "text_table.h"

#include <algorithm>

#include "format.h"

namespace zoctl {

namespace {

// The cells that a terminal needs, as the formatting library counts them: two for the wide characters of East Asia and
// for most emoji. It has no call for that; but no text has more cells than bytes, and text that is padded to as many
// cells as it has bytes grows by those that it does not fill.
std::size_t Cells(std::string_view utf8) {
    return utf8.empty() ? 0 : 2 * utf8.size() - zo::Format("{:<{}}", utf8, utf8.size()).size();
}

// A byte that belongs to no character of UTF-8.
constexpr std::uint32_t kMalformed = 0xFFFFFFFF;

std::uint32_t DecodeAt(std::string_view utf8, std::size_t at, std::size_t& length) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(utf8[i])); };
    const std::uint32_t lead = byte(at);
    length = 1;
    if (lead < 0x80) return lead;
    const std::size_t bytes = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (lead < 0xC0 || at + bytes > utf8.size()) return kMalformed;
    std::uint32_t point = lead & (0xFFu >> (bytes + 1));
    for (std::size_t i = at + 1; i < at + bytes; ++i) {
        if ((byte(i) & 0xC0u) != 0x80) return kMalformed;
        point = (point << 6) | (byte(i) & 0x3Fu);
    }
    length = bytes;
    return point;
}

bool ReversesDirection(std::uint32_t point) {
    return (point >= 0x200E && point <= 0x200F) || (point >= 0x202A && point <= 0x202E) ||
           (point >= 0x2066 && point <= 0x2069);
}

}  // namespace

std::string EscapeControls(std::string_view utf8) {
    std::string text;
    text.reserve(utf8.size());
    for (std::size_t at = 0, length = 0; at < utf8.size(); at += length) {
        const std::uint32_t point = DecodeAt(utf8, at, length);
        if (point == kMalformed) {
            text += zo::Format("\\x{:02X}", static_cast<unsigned char>(utf8[at]));
        } else if (point < 0x20 || point == 0x7F) {
            text += zo::Format("\\x{:02X}", point);
        } else if ((point >= 0x80 && point < 0xA0) || point == 0x2028 || point == 0x2029 || ReversesDirection(point)) {
            text += zo::Format("\\u{:04X}", point);
        } else {
            text += utf8.substr(at, length);
        }
    }
    return text;
}

std::string Counted(std::uint64_t count, std::string_view noun) {
    return zo::Format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string TextTable::Render() const {
    std::vector<std::vector<std::string>> lines;
    lines.push_back(headings_);
    for (const auto& row : rows_) {
        auto& cells = lines.emplace_back();
        for (const std::string& cell : row)
            cells.push_back(EscapeControls(cell));
    }
    std::vector<std::size_t> widths(headings_.size());
    for (const auto& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], Cells(line[i]));
    }
    std::string text;
    for (const auto& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            text += line[i];
            text.append(widths[i] - Cells(line[i]) + 2, ' ');
        }
        while (!text.empty() && text.back() == ' ')
            text.pop_back();
        text += '\n';
    }
    return text;
}

}  // namespace zoctl
