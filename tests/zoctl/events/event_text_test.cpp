#include "event_text.h"

#include <gtest/gtest.h>

namespace {

std::string Wide(const std::u16string& text) {
    std::string bytes;
    for (const char16_t unit : text)
        bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    return bytes;
}

std::vector<std::string> Found(const std::string& bytes) {
    return zoctl::FindStrings(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

TEST(EventText, FindsTheStringsOfARecordOfUnknownLayout) {
    using namespace std::string_literals;
    const std::string zeros(4, '\0');
    const std::string numbers = "\x1C\x8B\x55\xA6\x6F\x7C\xDD\x01\xF4\x03";  // that happen to be printable
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"\1\0\0"s + Wide(u"C:\\x.dll\0\0"s), {"C:\\x.dll"}},  // at an odd byte
        {zeros + Wide(u"first\0second"s), {"first", "second"}},
        {zeros + Wide(u"\u0416\u0417\u0418\u0419") + zeros, {"\xD0\x96\xD0\x97\xD0\x98\xD0\x99"}},
        {zeros + numbers + zeros + Wide(u"\\Device\\\u65E5\u672C"), {"\\Device\\\xE6\x97\xA5\xE6\x9C\xAC"}},
        {zeros + Wide(u"abc") + zeros, {}},                  // too short
        {zeros + Wide(u"A\u0416\u65E5\u0417") + zeros, {}},  // three alphabets, and a quarter is Latin
        {"\1", {}},
    };
    for (const auto& [bytes, strings] : cases)
        EXPECT_EQ(Found(bytes), strings);
}

TEST(EventText, TakesNoStringWithACharacterThatCannotBePrinted) {
    for (const char16_t unit : std::u16string(u" ~\xA0\xFFFD"))
        EXPECT_EQ(Found(Wide(u"name" + std::u16string(1, unit))).size(), 1u) << static_cast<int>(unit);
    for (const char16_t unit : std::u16string(u"\x1F\x7F\x80\x9F\xFFFE"))
        EXPECT_EQ(Found(Wide(u"name" + std::u16string(1, unit))).size(), 0u) << static_cast<int>(unit);
}

}  // namespace
