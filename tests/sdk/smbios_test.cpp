#include "smbios.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using zop::SystemUuid;

constexpr SystemUuid kUuid = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                              0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

SystemUuid Filled(std::uint8_t value) {
    SystemUuid uuid{};
    uuid.fill(value);
    return uuid;
}

// A structure with a formatted part of the given length, then its strings (each with its terminator) and the end mark.
Bytes Structure(std::uint8_t type, std::uint8_t length, const std::string& strings = {}) {
    Bytes bytes(length, 0xA5);
    bytes[0] = type;
    bytes[1] = length;
    bytes.insert(bytes.end(), strings.begin(), strings.end());
    bytes.insert(bytes.end(), strings.empty() ? 2 : 1, std::uint8_t{0});
    return bytes;
}

Bytes System(const SystemUuid& uuid, std::uint8_t length = 27) {
    Bytes bytes = Structure(1, length, std::string("Maker\0Model\0", 12));
    std::copy_n(uuid.begin(), std::min<std::size_t>(uuid.size(), length - 8u), bytes.begin() + 8);
    return bytes;
}

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// With the header's length as it should be, or another one.
Bytes Table(const Bytes& data, std::size_t length) {
    Bytes table = {0, 3, 4, 0};
    for (int i = 0; i < 4; ++i)
        table.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
    table.insert(table.end(), data.begin(), data.end());
    return table;
}
Bytes Table(const Bytes& data) {
    return Table(data, data.size());
}

TEST(Smbios, FindsTheUuidOfTheFirstSystemStructureThatHasOne) {
    const Bytes bios = Structure(0, 24, std::string("Vendor\0Version\0", 15));
    SystemUuid almostUnset = Filled(0xFF);
    almostUnset[15] = 0xFE;
    Bytes withoutStrings = System(kUuid, 25);
    withoutStrings.resize(25);
    const struct {
        const char* name;
        Bytes table;
        SystemUuid uuid;
    } cases[] = {
        {"behind strings", Table(Join({bios, System(kUuid)})), kUuid},
        {"behind the smallest structure", Table(Join({Structure(9, 4), System(kUuid)})), kUuid},
        {"behind one too short to hold it", Table(Join({System(Filled(1), 24), System(kUuid)})), kUuid},
        {"the first of two", Table(Join({System(kUuid), System(Filled(7))})), kUuid},
        {"shortest length, at the very end", Table(withoutStrings), kUuid},
        {"longest length", Table(System(kUuid, 255)), kUuid},
        {"one bit short of unset", Table(System(almostUnset)), almostUnset},
        {"bytes behind the stated length", Table(Join({System(kUuid), Bytes(40, 0)}), System(kUuid).size()), kUuid},
    };
    for (const auto& c : cases)
        EXPECT_EQ(zop::FindSystemUuid(c.table), c.uuid) << c.name;
}

TEST(Smbios, AnswersNothingForBrokenOrUnsetTables) {
    const Bytes good = System(kUuid);
    Bytes pastEnd = Structure(0, 24);
    pastEnd[1] = 27;
    Bytes endMarkMissing = Structure(0, 24, std::string("Vendor\0", 7));
    endMarkMissing.pop_back();
    Bytes cutUuid = System(kUuid, 25);
    cutUuid.resize(24);
    Bytes lengthTooSmall = Join({Structure(0, 24), good});
    lengthTooSmall[1] = 3;
    const struct {
        const char* name;
        Bytes table;
    } cases[] = {
        {"no bytes", {}},
        {"half a header", {0, 3, 4, 0, 40, 0, 0}},
        {"only a header", Table({})},
        {"length 3", Table(good, 3)},
        {"length past the bytes read", Table(good, good.size() + 1)},
        {"structure length 3", Table(lengthTooSmall)},
        {"formatted part past the data", Table(pastEnd)},
        {"system structure past the data", Table(cutUuid)},
        {"system structure behind the stated length", Table(Join({Structure(0, 24), good}), 26)},
        {"strings without an end", Table(endMarkMissing)},
        {"three bytes left", Table(Join({Structure(0, 24), {1, 27, 0}}))},
        {"no system structure", Table(Join({Structure(0, 24), Structure(2, 30)}))},
        {"UUID all 00", Table(System(Filled(0x00)))},
        {"UUID all FF", Table(System(Filled(0xFF)))},
        // The first one decides, set or not.
        {"UUID unset, another behind it", Table(Join({System(Filled(0xFF)), good}))},
    };
    for (const auto& c : cases)
        EXPECT_EQ(zop::FindSystemUuid(c.table), std::nullopt) << c.name;
}

}  // namespace
