// What is asked of the debugger engine, in which order, and what becomes of a dump where it fails.

#include "format.h"
#include "handle_count.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

class Analysis : public ReporterTest {
  protected:
    Analysis() {
        api_.networkOk();
        config_.uploadAll = 1;
    }
};

TEST_F(Analysis, OpensTheEngineOnceAndEachDumpInTurn) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    EXPECT_EQ(RunAnew(), "0: 2 2 0 0 2 0 0");
    Strings expected = {"QueryInterface(IDebugClient)", "DebugCreate()", "QueryInterface(IDebugControl)",
                        "SetOutputCallbacks(object)", "SetOutputMask(0x1)"};
    for (const char* dump : {"1.dmp", "2.dmp"}) {
        const Strings steps{
            zo::Format("OpenDumpFile(~\\dumps\\{})", dump), "WaitForEvent(0, ffffffff)",           "ReadBugCheckData()",
            "OutputStackTrace(1, none, 50, 0x0)",           "GetLastEventInformation(2000 bytes)", "EndSession(1)"};
        expected.insert(expected.end(), steps.begin(), steps.end());
    }
    expected.insert(expected.end(), {"SetOutputCallbacks(none)", "EndSession(1)", "last Release"});
    EXPECT_EQ(EngineCalls(), expected);
}

TEST_F(Analysis, FailsTheRunWhenTheEngineCannotBeMade) {
    AddDump("1.dmp", kOurs, kBase + 1);
    struct Case {
        const char* script;
        const char* status;
    };
    const Case cases[] = {
        {"DebugCreate fail 0x80004001", "80004001"},    {"DebugCreate null", "80004005"},
        {"QueryInterface fail 0x80004002", "80004002"}, {"QueryInterface null", "80004005"},
        {"Load fail 0x80004005", "8007045a"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        Script(c.script);
        EXPECT_EQ(RunAnew(), c.status + std::string(": 1 0 0 0 0 0 0"));
        EXPECT_EQ(TakeLog().back(), zo::Format("2 DbgEng load failed: 0x{}", c.status));
        EXPECT_EQ(Record(), 0u);
    }
    // The failures above left nothing that stands in the way.
    Script("");
    EXPECT_EQ(RunAnew(), "0: 1 1 0 0 1 0 0");
}

TEST_F(Analysis, GoesOnWithTheNextDumpWhenOneCannotBeAnalysed) {
    struct Case {
        const char* script;  // for the first dump
        const char* first;   // how its analysis failed
        const char* second;
    };
    const Case cases[] = {
        {"OpenDumpFile fail 0x80070005", "80070005", nullptr},
        {"OpenDumpFile delete", "80070002", nullptr},  // gone since it was listed
        {"ReadBugCheckData fail 0x8000ffff", "8000ffff", nullptr},
        {"WaitForEvent fail 0x80004005", "8000ffff", nullptr},  // ignored, but then the dump is not there
        {"OutputStackTrace fail 0x80004005", nullptr, nullptr},
        {"GetLastEventInformation fail 0x80004005", nullptr, nullptr},
        {"EndSession fail 0x80004005", nullptr, "8000ffff"},  // ignored, but then the next one cannot be opened
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        AddDump("1.dmp", kOurs, kBase + 1);
        AddDump("2.dmp", kOurs2, kBase + 2);
        Script("[1.dmp]\n" + std::string(c.script) + "\n");
        const int analysed = (c.first == nullptr) + (c.second == nullptr);
        EXPECT_EQ(RunAnew(), zo::Format("0: 2 {} 0 0 {} 0 0", analysed, analysed));
        const Strings log = TakeLog();
        const auto line = [](int number, const char* failure) {
            return failure != nullptr ? zo::Format("1 Analyze failed: ~\\dumps\\{}.dmp (0x{})", number, failure)
                                      : zo::Format("0 Dump ~\\dumps\\{}.dmp matched=[ZoProtector] upload=true", number);
        };
        ASSERT_EQ(log.size(), 4u);
        // Without a stack there is no name to match.
        if (std::string(c.script).starts_with("OutputStackTrace")) continue;
        EXPECT_EQ(log[2], line(1, c.first));
        EXPECT_EQ(log[3], line(2, c.second));
        // A dump that failed is dealt with for good.
        EXPECT_EQ(Record(), kBase + 2);
        EXPECT_EQ(Run(), "0: 0 0 0 0 0 0 0");
    }
}

TEST_F(Analysis, NamesTheCrashByTheMd5OfItsTextAndTheExceptionByItsAddress) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    AddDump("4.dmp", kNoException, kBase + 4);
    const auto field = [this](std::size_t dump, const char* name) { return Field(documents_.at(dump - 1), name); };
    // Chatter while a dump is opened or loaded is no part of its text.
    Script("OpenDumpFile babble 3000\nWaitForEvent babble 100\n[3.dmp]\nGetLastEventInformation fail 0x80004005\n");
    EXPECT_EQ(RunAnew(), "0: 4 4 0 0 4 0 0");
    const std::string signature = field(1, "CrashSignature");
    EXPECT_EQ(signature.size(), 32u);
    EXPECT_EQ(field(2, "CrashSignature"), signature);
    EXPECT_NE(field(3, "CrashSignature"), signature);
    EXPECT_EQ(field(2, "ErrAddr"), "0xFFFFF80604001A2B");
    EXPECT_EQ(field(3, "ErrAddr"), "0x0000000000000000");
    EXPECT_EQ(field(4, "ErrAddr"), "0x0000000000000000");
    Script("");
    RunAnew();
    EXPECT_EQ(field(1, "CrashSignature"), signature);
    Script("OutputStackTrace fail 0x80004005");
    RunAnew();
    EXPECT_EQ(field(1, "CrashSignature"), kBugcheckLineOnly);
}

TEST_F(Analysis, LeavesNoHandleBehind) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kNoDump, kBase + 2);
    Configure();
    std::uint32_t warm = 0;
    for (int i = 0; i < 33; ++i) {
        SetRecord(kBase);
        if (i == 3) warm = zotest::OpenHandleCount();
        Script(i % 3 == 0 ? "DebugCreate fail 0x80004001" : i % 3 == 1 ? "ReadBugCheckData fail 0x8000ffff" : "");
        Run();
    }
    EXPECT_EQ(zotest::OpenHandleCount(), warm);
}

}  // namespace
}  // namespace zocrashtest
