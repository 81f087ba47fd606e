#include "utf16_text.h"

#include <vector>

namespace zoctl {

namespace {

void AppendUtf8(std::string& text, std::uint32_t point) {
    if (point < 0x80) {
        text += static_cast<char>(point);
        return;
    }
    if (point < 0x800) {
        text += static_cast<char>(0xC0 | (point >> 6));
    } else {
        if (point < 0x10000) {
            text += static_cast<char>(0xE0 | (point >> 12));
        } else {
            text += static_cast<char>(0xF0 | (point >> 18));
            text += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
        }
        text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
    }
    text += static_cast<char>(0x80 | (point & 0x3F));
}

}  // namespace

std::string Utf8FromUnits(std::span<const std::uint16_t> units) {
    std::string text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        std::uint32_t point = units[i];
        if (point >= 0xD800 && point < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] < 0xE000) {
            point = 0x10000 + ((point - 0xD800) << 10) + (units[++i] - 0xDC00u);
        } else if (point >= 0xD800 && point < 0xE000) {
            point = 0xFFFD;
        }
        AppendUtf8(text, point);
    }
    return text;
}

std::string Utf8OfFile(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF")) return std::string(bytes.substr(3));
    const bool littleEndian = bytes.starts_with("\xFF\xFE");
    if (!littleEndian && !bytes.starts_with("\xFE\xFF")) return std::string(bytes);
    std::vector<std::uint16_t> units;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const auto first = static_cast<unsigned char>(bytes[i]);
        const auto second = static_cast<unsigned char>(bytes[i + 1]);
        units.push_back(static_cast<std::uint16_t>(littleEndian ? first | (second << 8) : (first << 8) | second));
    }
    return Utf8FromUnits(units);
}

}  // namespace zoctl
