// What is asked of the debugger engine, in which order, and what becomes of a dump where it fails.

#include "format.h"
#include "handle_count.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

using Strings = std::vector<std::string>;

constexpr std::uint64_t kBase = 133500000000000000;
constexpr char kBugcheckLineOnly[] = "a83d38223dd8c1365da314f1f15dda87";  // MD5 of "Bugcheck code 1e" and a line feed

class Analysis : public ReporterTest {
  protected:
    Analysis() {
        api_.notifyNetworkOk();
        config_.uploadAll = 1;
    }

    // A run over everything, as if for the first time.
    std::int32_t RunAnew() {
        zotest::RemoveTree(record_.wstring());
        Configure();
        stats_ = {};
        documents_.clear();
        EngineCalls();
        TakeLog();
        return api_.run(&stats_);
    }
};

TEST_F(Analysis, OpensTheEngineOnceAndEachDumpInTurn) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    EXPECT_EQ(RunAnew(), 0);
    const Strings calls = EngineCalls();
    Strings steps;
    for (const std::string& call : calls)
        steps.push_back(call.substr(0, call.find('(')));
    const Strings perDump = {
        "OpenDumpFile", "WaitForEvent", "ReadBugCheckData", "OutputStackTrace", "GetLastEventInformation",
        "EndSession"};
    Strings expected = {"DebugCreate", "QueryInterface", "SetOutputCallbacks", "SetOutputMask"};
    for (int dump = 0; dump < 2; ++dump)
        expected.insert(expected.end(), perDump.begin(), perDump.end());
    expected.insert(expected.end(), {"SetOutputCallbacks", "EndSession"});
    const auto first = std::find(steps.begin(), steps.end(), "DebugCreate");
    EXPECT_EQ(Strings(first, steps.begin() + (first - steps.begin()) + static_cast<std::ptrdiff_t>(expected.size())),
              expected);

    const auto has = [&](const std::string& call) {
        return std::find(calls.begin(), calls.end(), call) != calls.end();
    };
    for (const char* call : {"OpenDumpFile(~\\dumps\\1.dmp)", "OpenDumpFile(~\\dumps\\2.dmp)", "SetOutputMask(0x1)",
                             "WaitForEvent(0, ffffffff)", "EndSession(1)"}) {
        EXPECT_TRUE(has(call)) << call;
    }
    for (const std::string& call : calls) {
        if (call.starts_with("OutputStackTrace")) {
            EXPECT_EQ(call, "OutputStackTrace(1, none, 50, 0x0)");
        }
        if (call.starts_with("GetLastEventInformation")) {
            EXPECT_EQ(call, "GetLastEventInformation(2000 bytes)");
        }
    }
}

TEST_F(Analysis, FailsTheRunWhenTheEngineCannotBeMade) {
    AddDump("1.dmp", kOurs, kBase + 1);
    struct Case {
        const char* script;
        std::uint32_t status;
    };
    const Case cases[] = {
        {"DebugCreate fail 0x80004001", 0x80004001},
        {"DebugCreate null", 0x80004005},
        {"QueryInterface fail 0x80004002", 0x80004002},
        {"QueryInterface null", 0x80004005},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        Script(c.script);
        EXPECT_EQ(static_cast<std::uint32_t>(RunAnew()), c.status);
        EXPECT_EQ(Counters(), "1 0 0 0 0 0 0");
        EXPECT_EQ(TakeLog().back(), zo::Format("2 DbgEng load failed: 0x{:08x}", c.status));
        EXPECT_EQ(Record(), 0u);
    }
    Script("Load fail 0x80004005");
    EXPECT_LT(RunAnew(), 0);
    EXPECT_TRUE(TakeLog().back().starts_with("2 DbgEng load failed: 0x8007"));
    // The failures above left nothing that stands in the way.
    Script("SetOutputCallbacks hang 1");
    EXPECT_EQ(RunAnew(), 0);
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");
}

TEST_F(Analysis, GoesOnWithTheNextDumpWhenOneCannotBeAnalysed) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    struct Case {
        const char* script;  // for the first dump
        const char* failure;
        const char* counters;
    };
    const Case cases[] = {
        {"OpenDumpFile fail 0x80070005", "80070005", "2 1 0 0 1 0 0"},
        {"ReadBugCheckData fail 0x8000ffff", "8000ffff", "2 1 0 0 1 0 0"},
        {"WaitForEvent fail 0x80004005", "8000ffff", "2 1 0 0 1 0 0"},  // ignored, but then the dump is not there
        {"OutputStackTrace fail 0x80004005", nullptr, "2 2 0 0 2 0 0"},
        {"GetLastEventInformation fail 0x80004005", nullptr, "2 2 0 0 2 0 0"},
        {"EndSession hang 1", nullptr, "2 2 0 0 2 0 0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        Script("[1.dmp]\n" + std::string(c.script) + "\n");
        EXPECT_EQ(RunAnew(), 0);
        EXPECT_EQ(Counters(), c.counters);
        const Strings log = TakeLog();
        const std::string first = c.failure != nullptr
                                      ? zo::Format("1 Analyze failed: ~\\dumps\\1.dmp (0x{})", c.failure)
                                      : "0 Dump ~\\dumps\\1.dmp matched=[";
        ASSERT_EQ(log.size(), 4u);
        EXPECT_TRUE(log[2].starts_with(first)) << log[2];
        EXPECT_TRUE(log[3].starts_with("0 Dump ~\\dumps\\2.dmp matched=[")) << log[3];
        // A dump that failed is dealt with for good.
        EXPECT_EQ(Record(), kBase + 2);
        EXPECT_EQ(api_.run(&stats_), 0);
        EXPECT_EQ(Counters(), c.counters);
    }
}

TEST_F(Analysis, NamesTheCrashByTheMd5OfItsTextAndTheExceptionByItsAddress) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    AddDump("4.dmp", kNoException, kBase + 4);
    // Chatter while a dump is opened or loaded is no part of its text.
    Script("OpenDumpFile babble 3000\nWaitForEvent babble 100\n[3.dmp]\nGetLastEventInformation fail 0x80004005\n");
    EXPECT_EQ(RunAnew(), 0);
    ASSERT_EQ(documents_.size(), 4u);
    const std::string signature = Field(documents_[0], "CrashSignature");
    EXPECT_EQ(signature.size(), 32u);
    EXPECT_EQ(Field(documents_[1], "CrashSignature"), signature);
    EXPECT_NE(Field(documents_[2], "CrashSignature"), signature);
    const std::string address = Field(documents_[0], "ErrAddr");
    EXPECT_EQ(address.substr(0, 6), "0xFFFF");
    EXPECT_EQ(address.size(), 18u);
    for (const int zero : {2, 3}) {
        EXPECT_EQ(Field(documents_[static_cast<std::size_t>(zero)], "ErrAddr"), "0x0000000000000000");
    }
    Script("");
    EXPECT_EQ(RunAnew(), 0);
    EXPECT_EQ(Field(documents_[0], "CrashSignature"), signature);
    Script("OutputStackTrace fail 0x80004005");
    EXPECT_EQ(RunAnew(), 0);
    EXPECT_EQ(Field(documents_[0], "CrashSignature"), kBugcheckLineOnly);
}

TEST_F(Analysis, LeavesNoHandleBehind) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kNoDump, kBase + 2);
    RunAnew();
    RunAnew();
    const std::uint32_t before = zotest::OpenHandleCount();
    for (int i = 0; i < 30; ++i) {
        Script(i % 3 == 0 ? "DebugCreate fail 0x80004001" : i % 3 == 1 ? "ReadBugCheckData fail 0x8000ffff" : "");
        RunAnew();
    }
    EXPECT_EQ(zotest::OpenHandleCount(), before);
}

}  // namespace
}  // namespace zocrashtest
