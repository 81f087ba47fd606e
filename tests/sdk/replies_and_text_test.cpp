#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "identifier_text.h"
#include "log_line.h"
#include "ring_reply.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(RingReply, SizesAreCountedIn64Bits) {
    const struct {
        std::uint32_t recordSize, capacity;
        std::uint64_t size;
        std::uint32_t length;
    } cases[] = {
        {562, 0, 16, 16},
        {562, 1, 578, 578},
        {1076, 16384, 17'629'200, 17'629'200},
        {1076, 3'991'606, 4'294'968'072, 0xFFFFFFFF},  // the first capacity that 32 bits cannot tell
        {1076, 3'991'605, 4'294'966'996, 4'294'966'996},
        {2344, 0xFFFFFFFF, 10'067'403'339'496, 0xFFFFFFFF},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(zop::ReplySize(c.recordSize, c.capacity), c.size) << c.capacity;
        EXPECT_EQ(zop::LengthForDriver(c.size), c.length) << c.capacity;
    }
}

// The header needs all of its bytes, and records are copied up to the capacity whatever it promises.
TEST(RingReply, IsBelievedAsFarAsItGoes) {
    const std::uint32_t words[6] = {1, 2, 3, 4, 0x06050403, 0xEEEE0807};
    ZopListReplyHeader header{9, 9, 9, 9};
    EXPECT_FALSE(zop::ReadHeader(words, 15, header));
    EXPECT_EQ(header.total, 9u);
    EXPECT_TRUE(zop::ReadHeader(words, 16, header));
    EXPECT_EQ(std::memcmp(&header, words, sizeof header), 0);
    for (const std::uint32_t count : {0u, 1u, 2u, 300u, 0xFFFFFFFFu}) {
        Bytes records(6, 9);
        const std::uint32_t copied = zop::CopyRecords(words, count, 3, records.data(), 2);
        EXPECT_EQ(copied, std::min(count, 2u));
        Bytes expected = {3, 4, 5, 6, 7, 8};
        std::fill(expected.begin() + 3 * copied, expected.end(), std::uint8_t{9});
        EXPECT_EQ(records, expected) << count;
    }
    EXPECT_EQ(zop::CopyRecords(words, 5, 3, nullptr, 0), 0u);
}

TEST(Identifiers, AreMixedInOrderWithoutThoseThatThereAreNot) {
    const zop::Identifier all[] = {{"A", {1, 0, 2}}, {"BC", {}}, {"D", {0x1F}}};
    const zop::MixedIdentifiers mixed = zop::MixIdentifiers(all);
    EXPECT_EQ(mixed.count, 2);
    EXPECT_EQ(mixed.input, (Bytes{'A', 0x1F, 1, 0, 2, 'D', 0x1F, 0x1F}));
    EXPECT_EQ(zop::MixIdentifiers(std::span(all).subspan(1, 1)).count, 0);
}

std::string TextAt(const std::string& text, std::size_t offset) {
    return std::string(zop::TextAt({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, offset));
}

TEST(IdentifierText, EndsAtItsTerminatorAndLosesTheBlanksAroundIt) {
    using namespace std::string_literals;
    EXPECT_EQ(TextAt("  A cpu  9 \0rest"s, 0), "A cpu  9");
    EXPECT_EQ(TextAt("xyABC"s, 2), "ABC");  // the bytes end without a terminator
    EXPECT_EQ(TextAt("   \0"s, 0), "");
    EXPECT_EQ(TextAt("\0ABC"s, 0), "");
    EXPECT_EQ(TextAt("\tA\n"s, 0), "\tA\n");  // blanks only
    EXPECT_EQ(TextAt("ABC"s, 3), "");
}

TEST(IdentifierText, SerialOffsetMustLieInsideWhatTheDeviceReturned) {
    const struct {
        std::uint32_t offset;
        std::size_t returned;
        const char* serial;
    } cases[] = {
        {44, 64, "SER 1"}, {44, 45, "SER 1"},  // the rest of the buffer is zero, so the text may run on
        {44, 44, ""},      {0, 64, ""},        // no serial number
        {44, 39, ""},      {0xFFFFFFFF, 1024, ""},
        {1023, 1024, "Z"},
    };
    for (const auto& c : cases) {
        Bytes buffer(1024, 0);
        std::memcpy(buffer.data() + 24, &c.offset, 4);
        std::memcpy(buffer.data() + 42, "  SER 1 ", 8);
        buffer[1023] = 'Z';
        EXPECT_EQ(zop::SerialOfDescriptor(buffer, c.returned), c.serial) << c.offset << " " << c.returned;
    }
}

TEST(LogLine, HasAWordOfFiveCharactersForEveryLevel) {
    const zop::LogTime time = {2024, 3, 5, 9, 7, 3, 42};
    const char* words[] = {"ERROR", "WARN ", "INFO ", "DEBUG", "?????"};
    for (std::uint32_t level = 0; level < 5; ++level) {
        EXPECT_EQ(zop::LogLine(time, level, "a {} message"),
                  std::string("[2024-03-05 09:07:03.042][") + words[level] + "] a {} message\r\n");
    }
    EXPECT_EQ(zop::LogFileName(time), "\\ZoProtector_20240305.log");
}

TEST(LogLine, FilesAreKeptSevenDays) {
    constexpr std::uint64_t kDay = 864'000'000'000;
    constexpr std::uint64_t kNow = 133'000'000'000'000'000;
    EXPECT_FALSE(zop::IsPastRetention(kNow, kNow - 7 * kDay));
    EXPECT_TRUE(zop::IsPastRetention(kNow, kNow - 7 * kDay - 1));
    EXPECT_FALSE(zop::IsPastRetention(kNow, kNow + 8 * kDay));
}

}  // namespace
