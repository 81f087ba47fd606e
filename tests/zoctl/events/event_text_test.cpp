#include "event_text.h"

#include <gtest/gtest.h>

namespace {

TEST(EventText, FindsTheStringsOfARecordOfUnknownLayout) {
    using namespace std::string_literals;
    const auto wide = [](const std::u16string& text) {
        std::string bytes;
        for (const char16_t unit : text)
            bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
        return bytes;
    };
    const std::string zeros(4, '\0');
    const std::string numbers = "\x1C\x8B\x55\xA6\x6F\x7C\xDD\x01\xF4\x03";  // that happen to be printable
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"\1\0\0"s + wide(u"C:\\x.dll\0\0"s), {"C:\\x.dll"}},  // at an odd byte
        {zeros + wide(u"first\0second"s), {"first", "second"}},
        {zeros + wide(u"\u0416\u0417\u0418\u0419") + zeros, {"\xD0\x96\xD0\x97\xD0\x98\xD0\x99"}},
        {zeros + numbers + zeros + wide(u"\\Device\\\u65E5\u672C"), {"\\Device\\\xE6\x97\xA5\xE6\x9C\xAC"}},
        {zeros + wide(u"abc") + zeros, {}},                  // too short
        {zeros + wide(u"A\u0416\u65E5\u0417") + zeros, {}},  // three alphabets, and a quarter is Latin
        {"\1", {}},
    };
    for (const auto& [bytes, strings] : cases)
        EXPECT_EQ(zoctl::FindStrings(std::vector<std::uint8_t>(bytes.begin(), bytes.end())), strings);
}

}  // namespace
