#include "hex.h"

#include <gtest/gtest.h>

#include <array>

namespace zo {
namespace {

TEST(Hex, TurnsBytesIntoDigitsAndBack) {
    std::vector<std::uint8_t> bytes;
    EXPECT_TRUE(DecodeHex("001FaFf0", bytes));
    EXPECT_EQ(ToHex(bytes), "001faff0");
    EXPECT_EQ(ToHex(bytes, HexCase::kUpper), "001FAFF0");
}

TEST(Hex, AnOddNumberOfDigitsGivesNothing) {
    std::vector<std::uint8_t> bytes = {1};
    EXPECT_FALSE(DecodeHex("abc", bytes));
    EXPECT_TRUE(bytes.empty());
}

TEST(Hex, ExactDecodingNeedsTheWholeLength) {
    std::array<std::uint8_t, 2> field{};
    EXPECT_TRUE(DecodeHexExactly("0102", field));
    EXPECT_EQ(field, (std::array<std::uint8_t, 2>{1, 2}));
    EXPECT_FALSE(DecodeHexExactly("010203", field));
    EXPECT_FALSE(DecodeHexExactly("01", field));
}

// The text is checked in blocks, then character by character.
TEST(Hex, OtherCharactersAreRefusedAtEveryPlace) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t place = 0; place < 66; ++place) {
        for (int character = 0; character < 256; ++character) {
            std::string text(66, 'f');
            text[place] = static_cast<char>(character);
            const bool isDigit = std::string_view("0123456789abcdefABCDEF").find(text[place]) != std::string::npos;
            ASSERT_EQ(IsHex(text), isDigit) << place << " " << character;
            ASSERT_EQ(DecodeHex(text, bytes), isDigit) << place << " " << character;
        }
    }
}

}  // namespace
}  // namespace zo
