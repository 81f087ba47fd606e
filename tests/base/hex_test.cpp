#include "hex.h"

#include <gtest/gtest.h>

#include <array>

namespace zo {
namespace {

TEST(Hex, ShowsEachByteAsTwoDigitsHighOneFirst) {
    const std::array<std::uint8_t, 4> bytes{0x00, 0x1F, 0xA0, 0xFF};
    EXPECT_EQ(ToHex(bytes), "001fa0ff");
    EXPECT_EQ(ToHex(bytes, HexCase::kUpper), "001FA0FF");
    EXPECT_EQ(ToHex({}), "");
}

TEST(Hex, DecodesBothCasesAndRefusesAllElse) {
    const struct {
        const char* text;
        bool accepted;
        std::vector<std::uint8_t> bytes;
    } cases[] = {{"", true, {}},     {"00ff", true, {0x00, 0xFF}}, {"aBcD", true, {0xAB, 0xCD}}, {"abc", false, {}},
                 {" 00", false, {}}, {"00 ", false, {}},           {"0x00", false, {}}};
    for (const auto& c : cases) {
        std::vector<std::uint8_t> bytes{1, 2, 3};
        EXPECT_EQ(DecodeHex(c.text, bytes), c.accepted) << c.text;
        EXPECT_EQ(bytes, c.bytes) << c.text;
    }
    std::array<std::uint8_t, 2> field{};
    EXPECT_TRUE(DecodeHexExactly("0102", field));
    EXPECT_EQ(field, (std::array<std::uint8_t, 2>{1, 2}));
    EXPECT_FALSE(DecodeHexExactly("010203", field));
    EXPECT_FALSE(DecodeHexExactly("01", field));
}

// Every character at every place of a text that is checked a block at a time and then one by one.
TEST(Hex, EveryOtherCharacterIsRefusedEverywhere) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t place = 0; place < 66; ++place) {
        for (int character = 0; character < 256; ++character) {
            std::string text(66, 'f');
            text[place] = static_cast<char>(character);
            const bool isDigit =
                character != 0 && std::string("0123456789abcdefABCDEF").find(text[place]) != std::string::npos;
            ASSERT_EQ(IsHex(text), isDigit) << place << " " << character;
            ASSERT_EQ(DecodeHex(text, bytes), isDigit) << place << " " << character;
        }
    }
}

}  // namespace
}  // namespace zo
