// The dump reader by itself: what it makes of whole files, and that no damaged file leads it astray.

#include "kernel_dump.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "dump_text.h"

namespace zoengine {
namespace {

std::string ReadDump(const std::string& name) {
    std::ifstream file(ZO_TEST_DUMPS + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Everything that the engine does with a dump, so that the sanitizers see it: the stack, an empty line and all that is
// printed while the dump is loaded. Empty when it is refused.
std::string AllText(std::string_view bytes, StackColumns columns = {true, true, true}) {
    const auto dump = ParseKernelDump(bytes);
    if (!dump) return {};
    const std::vector<Frame> frames = WalkStack(*dump, 50);
    EXPECT_TRUE(!frames.empty() && frames.size() <= 50);
    std::string all = StackText(*dump, frames, columns) + "\n";
    for (const OutputText& output : LoadingText(*dump))
        all += output.text;
    return all;
}

TEST(KernelDump, HoldsWhatTheGeneratorWasAskedFor) {
    const std::string text = AllText(ReadDump("storage.dmp"), {});
    EXPECT_TRUE(text.starts_with("nt+0x10\nstorage+0x1200\nnt+0x20\n\n")) << text;
    for (const char* line : {"BugCheck D1, {1, 2, 3, fffff80604001200}\n", "Probably caused by : storage\n",
                             "Time of the crash: 2024-01-17 21:20:00 UTC\n", "up time: 0 days 2:00:00\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    EXPECT_TRUE(AllText(ReadDump("storage.dmp"))
                    .starts_with(" # Child-SP          RetAddr           Call Site\n"
                                 "00 ffffbe8f`1a2b3000 fffff806`04001200 nt+0x10\n"));
    EXPECT_TRUE(AllText(ReadDump("header_only.dmp"), {}).starts_with("0xfffff806`003f5e40\n\n"));
}

TEST(KernelDump, BrokenCutAnywhereOrWithHostileNumbersIsRefusedOrHarmless) {
    const std::string good = ReadDump("plain.dmp");
    ASSERT_NE(AllText(good), "");
    for (const std::size_t broken : {0u, 5u, 0x30u}) {
        std::string bytes = good;
        bytes[broken] = '!';
        EXPECT_EQ(AllText(bytes), "") << "byte " << broken;
    }
    for (std::size_t size = 0; size < good.size(); size += size < kHeaderSize ? 61 : 1) {
        // A block of its own, so that reading past its end is seen. The end mark comes last: no cut dump is whole.
        EXPECT_EQ(AllText(std::string(good, 0, size)), "") << size;
    }
    const auto length = static_cast<std::uint32_t>(good.size());
    for (std::size_t at = kHeaderSize; at + 4 <= good.size(); at += 4)
        for (const std::uint32_t value : {0u, 1u, 33u, length - 1, length, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            std::string bytes = good;
            std::memcpy(bytes.data() + at, &value, sizeof(value));
            AllText(bytes);
        }
}

}  // namespace
}  // namespace zoengine
