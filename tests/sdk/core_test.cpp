// The cores of the SDK that read what others wrote, and how sizes and log lines are made.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "identifier_text.h"
#include "log_line.h"
#include "ring_reply.h"
#include "smbios.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using zop::ZopSystemUuid;

constexpr ZopSystemUuid kUuid = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                                 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
constexpr std::size_t kAll = 0xFFFFFFFF;

ZopSystemUuid Filled(std::uint8_t value, std::uint8_t last) {
    ZopSystemUuid uuid{};
    uuid.fill(value);
    uuid[15] = last;
    return uuid;
}

// A structure that claims the given length of its formatted part, its strings (each with its terminator), the end mark.
Bytes Structure(std::uint8_t type, std::uint8_t length, const std::string& strings = {}) {
    Bytes bytes(std::max<std::size_t>(length, 4), 0xA5);
    bytes[0] = type;
    bytes[1] = length;
    bytes.insert(bytes.end(), strings.begin(), strings.end());
    bytes.insert(bytes.end(), strings.empty() ? 2 : 1, std::uint8_t{0});
    return bytes;
}

Bytes System(const ZopSystemUuid& uuid = kUuid, std::uint8_t length = 27) {
    Bytes bytes = Structure(1, length, std::string("Maker\0Model\0", 12));
    std::copy_n(uuid.begin(), std::min<std::size_t>(uuid.size(), length - 8u), bytes.begin() + 8);
    return bytes;
}

// A table of these structures, of which the last bytes are missing and whose header states the length that there is or
// another one.
Bytes Table(std::initializer_list<Bytes> structures, std::size_t missing = 0, std::size_t length = kAll) {
    Bytes table = {0, 3, 4, 0, 0, 0, 0, 0};
    for (const Bytes& part : structures)
        table.insert(table.end(), part.begin(), part.end());
    table.resize(table.size() - missing);
    if (length == kAll) length = table.size() - 8;
    table[4] = static_cast<std::uint8_t>(length);
    table[5] = static_cast<std::uint8_t>(length >> 8);
    return table;
}

TEST(Smbios, TheUuidIsThatOfTheFirstSystemStructureThatCanHoldOne) {
    const Bytes bios = Structure(0, 24, std::string("Vendor\0Version\0", 15));
    const Bytes good = System();
    const ZopSystemUuid almostUnset = Filled(0xFF, 0xFE);
    const struct {
        const char* name;
        Bytes table;
        std::optional<ZopSystemUuid> uuid = std::nullopt;
    } cases[] = {
        {"behind strings", Table({bios, good}), kUuid},
        {"behind the smallest structure", Table({Structure(9, 4), good}), kUuid},
        {"behind one too short to hold it", Table({System(almostUnset, 24), good}), kUuid},
        {"the first of two", Table({good, System(almostUnset)}), kUuid},
        {"shortest length, at the very end", Table({System(kUuid, 25)}, 13), kUuid},
        {"longest length", Table({System(kUuid, 255)}), kUuid},
        {"one bit short of unset", Table({System(almostUnset)}), almostUnset},
        {"bytes behind the stated length", Table({good, bios}, 0, good.size()), kUuid},
        {"no bytes", {}},
        {"half a header", {0, 3, 4, 0, 40, 0, 0}},
        {"length 3", Table({good}, 0, 3)},
        {"length past the bytes read", Table({good}, 0, good.size() + 1)},
        {"structure length 3", Table({Structure(0, 3), good})},
        {"system structure past the data", Table({System(kUuid, 25)}, 14)},
        {"system structure behind the stated length", Table({Structure(0, 24), good}, 0, 26)},
        {"strings without an end", Table({bios}, 1)},
        {"three bytes left", Table({bios, {1, 27, 0}})},
        {"no system structure", Table({bios, Structure(2, 30)})},
        {"UUID all 00", Table({System(Filled(0, 0))})},
        {"UUID unset, another behind it", Table({System(Filled(0xFF, 0xFF)), good})},
    };
    for (const auto& c : cases)
        EXPECT_EQ(zop::ZopFindSystemUuid(c.table), c.uuid) << c.name;
}

TEST(RingReply, SizesAreCountedIn64Bits) {
    EXPECT_EQ(zop::ZopReplySize(1076, 16384), 17'629'200u);
    EXPECT_EQ(zop::ZopReplySize(2344, 0xFFFFFFFF), 10'067'403'339'496u);
    // The last capacity that 32 bits can tell, and the first that they cannot.
    EXPECT_EQ(zop::ZopLengthForDriver(zop::ZopReplySize(1076, 3'991'605)), 4'294'966'996u);
    EXPECT_EQ(zop::ZopLengthForDriver(zop::ZopReplySize(1076, 3'991'606)), 0xFFFFFFFFu);
}

TEST(IdentifierText, SerialOffsetMustLieInsideWhatTheDeviceReturned) {
    const struct {
        std::uint32_t offset;
        std::size_t returned;
        const char* serial;
    } cases[] = {
        {44, 64, "SER 1"}, {44, 45, "SER 1"},  // the rest of the buffer is zero, so the text may run on
        {44, 44, ""},      {0, 64, ""},        // no serial number
        {24, 39, ""},      {24, 40, "\x18"},   // no whole descriptor, and the smallest
        {1023, 1024, "Z"}, {0xFFFFFFFF, 1024, ""},
    };
    for (const auto& c : cases) {
        Bytes buffer(1024, 0);
        std::memcpy(buffer.data() + 24, &c.offset, 4);
        std::memcpy(buffer.data() + 42, "  SER 1 ", 8);
        buffer[1023] = 'Z';
        buffer[0] = buffer[28] = 40;                // the version, and the bus type behind the offset
        buffer.resize(c.offset == 24 ? 40 : 1024);  // at least the fixed part
        EXPECT_EQ(zop::ZopSerialOfDescriptor(buffer, c.returned), c.serial) << c.offset << " " << c.returned;
    }
}

TEST(LogFile, IsPastRetentionAfterMoreThanSevenDays) {
    constexpr std::uint64_t kSevenDays = 6'048'000'000'000;
    EXPECT_FALSE(zop::ZopIsPastRetention(kSevenDays + 5, 5));
    EXPECT_TRUE(zop::ZopIsPastRetention(kSevenDays + 6, 5));
}

TEST(LogLine, HasAWordOfFiveCharactersForEveryLevel) {
    const char* words[] = {"ERROR", "WARN ", "INFO ", "DEBUG", "?????"};
    for (std::uint32_t level = 0; level < 5; ++level)
        EXPECT_EQ(zop::ZopLogLine({2024, 3, 5, 9, 7, 3, 42}, level, "a {} message"),
                  std::string("[2024-03-05 09:07:03.042][") + words[level] + "] a {} message\r\n");
}

}  // namespace
