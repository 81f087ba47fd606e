// Dump headers without a debugger engine: which files are sound, and when the bug check is known.

#include "dump_header.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "rows.h"

namespace {

void Put(std::string& file, std::size_t offset, std::uint32_t value) {
    std::memcpy(file.data() + offset, &value, sizeof(value));
}

// A small dump of bug check 0xD1 whose own block ends with the end mark.
std::string SmallDump(std::uint32_t size = 0x2104) {
    std::string file(size, '\0');
    file.replace(0, 8, "PAGEDU64");
    Put(file, 0x30, 0x8664);
    Put(file, 0x38, 0xD1);
    Put(file, 0x58, 0x77);  // the fourth parameter
    Put(file, 0xF98, 4);
    Put(file, 0x2004, size);
    Put(file, 0x2008, size - 4);
    return file.replace(size - 4, 4, "TRGD");
}

std::string With(std::size_t offset, std::uint32_t value) {
    std::string file = SmallDump();
    Put(file, offset, value);
    return file;
}

TEST(DumpHeader, IsSoundWhenTheFileIsAsLongAsItSays) {
    const zotest::Rows<std::string, bool, bool> rows = {
        {"a small dump", SmallDump(), true, true},
        {"as small as can be", SmallDump(0x2010), true, true},
        {"a dump with something after it", SmallDump() + "more", true, true},
        {"a kernel dump, of which no length is known", With(0xF98, 2).substr(0, 0x2000), true, true},
        {"a byte shorter than it says", With(0x2004, 0x2105), false, true},
        {"cut off by a byte", SmallDump().substr(0, 0x2103), false, true},
        {"cut off in the block's own head", SmallDump().substr(0, 0x2008), false, true},
        {"cut off in the header", SmallDump().substr(0, 0x1FFF), false, true},
        {"cut off behind the bug check", SmallDump().substr(0, 0x60), false, true},
        {"cut off in the bug check", SmallDump().substr(0, 0x5F), false, false},
        {"without its end mark", With(0x2100, 0), false, true},
        {"an end mark outside the file", With(0x2008, 0xFFFFFFFF), false, true},
        {"a length of 0", With(0x2004, 0), false, true},
        {"of another machine", With(0x30, 0x14C), false, true},
        {"a 32-bit dump", With(4, 0x504D5544), false, false},
        {"an empty file", "", false, false},
    };
    for (const auto& [name, bytes, sound, bugCheck] : rows) {
        SCOPED_TRACE(name);
        const zoctl::DumpHeader header = zoctl::ReadDumpHeader([&file = bytes](std::uint64_t offset, std::size_t size) {
            return offset < file.size() ? file.substr(offset, size) : std::string();
        });
        EXPECT_EQ(header.sound, sound);
        ASSERT_EQ(header.bugCheck.has_value(), bugCheck);
        if (!bugCheck) continue;
        EXPECT_EQ(header.bugCheck->code, 0xD1u);
        EXPECT_EQ(header.bugCheck->parameters[3], 0x77u);
    }
}

}  // namespace
