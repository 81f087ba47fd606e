// The dump reader by itself: what it makes of whole files, and that no damaged file leads it astray.

#include "kernel_dump.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "dump_text.h"
#include "engine_script.h"

namespace zoengine {
namespace {

std::string ReadDump(const std::string& name) {
    std::ifstream file(ZO_TEST_DUMPS + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string LoadingOf(const KernelDump& dump) {
    std::string all;
    for (const OutputText& output : LoadingText(dump))
        all += output.text;
    return all;
}

TEST(KernelDump, HoldsWhatTheGeneratorWasAskedFor) {
    const auto dump = ParseKernelDump(ReadDump("storage.dmp"));
    ASSERT_TRUE(dump);
    EXPECT_EQ(dump->exceptionCode, 0xC0000005u);
    EXPECT_EQ(dump->exceptionAddress, 0xfffff80604001200u);
    EXPECT_EQ(StackText(*dump, WalkStack(*dump, 50), {}), "nt+0x10\nstorage+0x1200\nnt+0x20\n");
    EXPECT_EQ(StackText(*dump, WalkStack(*dump, 1), {.names = true, .addresses = true, .numbers = true}),
              " # Child-SP          RetAddr           Call Site\n"
              "00 ffffbe8f`1a2b3000 fffff806`04001200 nt+0x10\n");
    const std::string loading = LoadingOf(*dump);
    for (const char* line : {"BugCheck D1, {1, 2, 3, fffff80604001200}\n", "Probably caused by : storage\n",
                             "Time of the crash: 2024-01-17 21:20:00 UTC\n", "up time: 0 days 2:00:00\n"}) {
        EXPECT_NE(loading.find(line), std::string::npos) << line << loading;
    }

    const auto other = ParseKernelDump(ReadDump("header_only.dmp"));
    ASSERT_TRUE(other);
    EXPECT_EQ(other->bugCheckCode, 0x1Eu);
    EXPECT_TRUE(other->modules.empty());
    EXPECT_EQ(StackText(*other, WalkStack(*other, 50), {}), "0xfffff806`003f5e40\n");
}

TEST(KernelDump, RefusesWhatIsNoneOfThisMachine) {
    const std::string good = ReadDump("plain.dmp");
    ASSERT_TRUE(ParseKernelDump(good));
    for (const std::size_t broken : {std::size_t{0}, std::size_t{5}, std::size_t{0x30}}) {
        std::string bytes = good;
        bytes[broken] = '!';
        EXPECT_FALSE(ParseKernelDump(bytes)) << "byte " << broken;
    }
}

// Everything that the engine does with a dump, so that the sanitizers see it.
bool UseWholly(std::string_view bytes) {
    const auto dump = ParseKernelDump(bytes);
    if (!dump) return false;
    const std::vector<Frame> frames = WalkStack(*dump, 50);
    EXPECT_TRUE(!frames.empty() && frames.size() <= 50);
    EXPECT_FALSE(StackText(*dump, frames, {true, true, true}).empty());
    EXPECT_FALSE(LoadingOf(*dump).empty());
    return true;
}

TEST(KernelDump, CutAnywhereOrWithHostileNumbersIsRefusedOrHarmless) {
    const std::string good = ReadDump("plain.dmp");
    for (std::size_t size = 0; size < good.size(); size += size < kHeaderSize ? 61 : 1) {
        // A block of its own, so that reading past its end is seen. The end mark stands last: no cut dump is whole.
        EXPECT_FALSE(UseWholly(std::string(good, 0, size))) << size;
    }
    const auto length = static_cast<std::uint32_t>(good.size());
    for (std::size_t at = kHeaderSize; at + 4 <= good.size(); at += 4)
        for (const std::uint32_t value : {0u, 1u, 33u, length - 1, length, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            std::string bytes = good;
            std::memcpy(bytes.data() + at, &value, sizeof(value));
            UseWholly(bytes);
        }
}

TEST(EngineScript, ReadsItsLinesAndQuotesTheWrongOne) {
    std::vector<ScriptLine> lines;
    std::string error;
    ASSERT_TRUE(
        ParseScript("# first\n[a.dmp]\r\n WaitForEvent hang 20\nWaitForEvent say one\\ntwo\\x41\\\\\n[*]\n"
                    "EndSession delete",
                    lines, error))
        << error;
    EXPECT_TRUE(LinesFor(lines, "WaitForEvent", "b.dmp").empty());
    const auto found = LinesFor(lines, "WaitForEvent", "a.dmp");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].number, 20u);
    EXPECT_EQ(found[1].text, "one\ntwoA\\");
    EXPECT_EQ(LinesFor(lines, "EndSession", "b.dmp").size(), 1u);
    for (const char* wrong : {"OpenDumpFile", "Opendumpfile hang 1", "WaitForEvent hang x", "EndSession delete it"}) {
        EXPECT_FALSE(ParseScript(wrong, lines, error)) << wrong;
        EXPECT_EQ(error, wrong);
    }
}

}  // namespace
}  // namespace zoengine
