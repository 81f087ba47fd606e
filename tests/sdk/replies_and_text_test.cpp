#include <gtest/gtest.h>

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

TEST(RingReply, AShortReplyHasNoHeader) {
    const std::uint32_t words[4] = {1, 2, 3, 4};
    ZopDrainReplyHeader drain{};
    EXPECT_FALSE(zop::ReadHeader(words, 0, drain));
    EXPECT_FALSE(zop::ReadHeader(words, 15, drain));
    EXPECT_EQ(drain.count, 0u);
    ASSERT_TRUE(zop::ReadHeader(words, 16, drain));
    EXPECT_EQ((std::vector<std::uint32_t>{drain.count, drain.dropped, drain.position, drain.writerSeq}),
              (std::vector<std::uint32_t>{1, 2, 3, 4}));
    ZopListReplyHeader list{};
    ASSERT_TRUE(zop::ReadHeader(words, 4000, list));
    EXPECT_EQ((std::vector<std::uint32_t>{list.total, list.returned, list.truncated}),
              (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST(RingReply, CopiesNeverMoreThanTheCapacity) {
    constexpr std::uint32_t kSize = 3;
    constexpr std::uint32_t kCapacity = 2;
    Bytes reply(16, 0xEE);
    for (std::uint8_t i = 1; i <= kSize * kCapacity; ++i)
        reply.push_back(i);
    const struct {
        std::uint32_t count, copied;
        Bytes records;
    } cases[] = {
        {0, 0, {9, 9, 9, 9, 9, 9}},   {1, 1, {1, 2, 3, 9, 9, 9}},          {2, 2, {1, 2, 3, 4, 5, 6}},
        {300, 2, {1, 2, 3, 4, 5, 6}}, {0xFFFFFFFF, 2, {1, 2, 3, 4, 5, 6}},
    };
    for (const auto& c : cases) {
        Bytes records(kSize * kCapacity, 9);
        EXPECT_EQ(zop::CopyRecords(reply.data(), c.count, kSize, records.data(), kCapacity), c.copied) << c.count;
        EXPECT_EQ(records, c.records) << c.count;
    }
    EXPECT_EQ(zop::CopyRecords(reply.data(), 5, kSize, nullptr, 0), 0u);
}

std::string TextAt(const std::string& text, std::size_t offset) {
    return std::string(zop::TextAt({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, offset));
}

TEST(IdentifierText, EndsAtItsTerminatorAndLosesTheBlanksAroundIt) {
    using namespace std::string_literals;
    EXPECT_EQ(TextAt("  A cpu  9 \0rest"s, 0), "A cpu  9");
    EXPECT_EQ(TextAt("xyABC"s, 2), "ABC");  // the bytes end without a terminator
    EXPECT_EQ(TextAt("   \0"s, 0), "");
    EXPECT_EQ(TextAt("   "s, 0), "");
    EXPECT_EQ(TextAt("\0ABC"s, 0), "");
    EXPECT_EQ(TextAt("\tA\n"s, 0), "\tA\n");  // blanks only
    EXPECT_EQ(TextAt("ABC"s, 3), "");
    EXPECT_EQ(TextAt(""s, 0), "");
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
    EXPECT_EQ(zop::LogLine(time, 0xFFFFFFFF, ""), "[2024-03-05 09:07:03.042][?????] \r\n");
    EXPECT_EQ(zop::LogFileName(time), "\\ZoProtector_20240305.log");
}

TEST(LogLine, FilesAreKeptSevenDays) {
    constexpr std::uint64_t kDay = 864'000'000'000;
    constexpr std::uint64_t kNow = 133'000'000'000'000'000;
    EXPECT_FALSE(zop::IsPastRetention(kNow, kNow));
    EXPECT_FALSE(zop::IsPastRetention(kNow, kNow - 7 * kDay));
    EXPECT_TRUE(zop::IsPastRetention(kNow, kNow - 7 * kDay - 1));
    EXPECT_FALSE(zop::IsPastRetention(kNow, kNow + 8 * kDay));
    EXPECT_TRUE(zop::IsPastRetention(kNow, 0));
}

}  // namespace
