// What is asked of the debugger engine in which order, what is made of its answers, and what a failure of it costs.

#include <algorithm>
#include <cstdlib>
#include <new>

#include "log_reader.h"
#include "reporter_fixture.h"

namespace zotest {
namespace {

class Engine : public ReporterTest {
  protected:
    Engine() { config_.uploadAll = 1; }
    // The calls that the engine has recorded, without their results.
    Strings Calls() {
        Strings calls;
        for (const std::string& line : ReadLogLines(folder_ / "engine.log"))
            calls.push_back(Shortened(line.substr(0, line.find(" = "))));
        return calls;
    }
    // The values of a field in the queries of a run over everything, one for each dump.
    Strings FieldOfEach(const char* script, const char* name) {
        Script(script);
        EXPECT_EQ(RunAnew().status, 0u);
        Strings values;
        for (const std::string& document : documents_)
            values.push_back(Field(document, name));
        return values;
    }
};

TEST_F(Engine, IsSetUpOnceAndOpensEachDumpInTurn) {
    AddDumps({kOurs, kForeign});
    EXPECT_EQ(RunAnew(), (Outcome{.found = 2, .selected = 2, .queriesFailed = 2}));
    Strings expected = {"DebugCreate()", "QueryInterface(IDebugControl)", "SetOutputCallbacks(object)",
                        "SetOutputMask(0x1)"};
    for (const char* open : {"OpenDumpFile(~\\dumps\\1.dmp)", "OpenDumpFile(~\\dumps\\2.dmp)"}) {
        expected.insert(expected.end(),
                        {open, "WaitForEvent(0, ffffffff)", "ReadBugCheckData()", "OutputStackTrace(1, none, 50, 0x0)",
                         "GetLastEventInformation(2000 bytes)", "EndSession(1)"});
    }
    expected.insert(expected.end(), {"SetOutputCallbacks(none)", "EndSession(1)", "last Release"});
    EXPECT_EQ(Calls(), expected);
}

TEST_F(Engine, ThatCannotBeSetUpFailsTheRun) {
    const Rows<std::uint32_t> rows = {
        {"DebugCreate fail 0x80004001", 0x80004001},    {"DebugCreate null", 0x80004005},
        {"QueryInterface fail 0x80004002", 0x80004002}, {"QueryInterface null", 0x80004005},
        {"Load fail 0x80004005", 0x8007045a},
    };
    AddDumps({kOurs});
    for (const auto& [script, status] : rows) {
        Script(script);
        EXPECT_EQ(RunAnew(), (Outcome{.status = status, .found = 1})) << script;
        EXPECT_EQ(TakeLog().back(), zo::Format("2 DbgEng load failed: 0x{:08x}", status));
        EXPECT_EQ(Record(), 0u);  // the next run finds the dump again
    }
    // What was handed out is released, whatever else was not.
    EXPECT_EQ(std::ranges::count(Calls(), "last Release"), 2);
}

TEST_F(Engine, FailsTheRunWhenOneOfItsLibrariesIsNowhere) {
    AddDumps({kOurs});
    // The program's own path is cut off, so that the system's folder alone is searched.
    const ImportHook program("GetModuleFileNameW", GetModuleFileNameW, [](HMODULE, wchar_t* path, DWORD units) {
        (ProgramFolder() / std::wstring(units, L'x')).wstring().copy(path, units - 1);
        return units;
    });
    const ImportHook system("GetSystemDirectoryW", GetSystemDirectoryW, [&](wchar_t* path, UINT units) {
        return static_cast<UINT>(folder_.Path().wstring().copy(path, units));
    });
    for (const char* present : {"neither", "dbghelp.dll", "dbgeng.dll"}) {
        WriteFileBytes(folder_ / present, "");
        EXPECT_EQ(RunAnew(), (Outcome{.status = 0x80070002, .found = 1})) << present;
        std::filesystem::remove(folder_ / present);
    }
}

TEST_F(Engine, FailingOnOneDumpSparesTheOthers) {
    const std::string first = "1 Analyze failed: ~\\dumps\\1.dmp (0x";
    const std::string second = "0 Dump ~\\dumps\\2.dmp matched=[ZoProtector] upload=true";
    const Rows<const char*, Strings> rows = {
        {"no bugcheck", "[1.dmp]\nReadBugCheckData fail 0x8000ffff", {first + "8000ffff)", second}},
        {"gone since it was listed", "[1.dmp]\nOpenDumpFile delete", {first + "80070002)", second}},
        // The result of the wait is ignored, but then nothing is loaded.
        {"never loaded", "[1.dmp]\nWaitForEvent fail 0x80004005", {first + "8000ffff)", second}},
        {"not closed, so that the next one cannot be opened",
         "[1.dmp]\nEndSession fail 0x80004005",
         {"0 Dump ~\\dumps\\1.dmp matched=[ZoProtector] upload=true",
          "1 Analyze failed: ~\\dumps\\2.dmp (0x8000ffff)"}},
    };
    for (const auto& [name, script, lines] : rows) {
        SCOPED_TRACE(name);
        AddDumps({kOurs, kOurs2});
        Script(script);
        EXPECT_EQ(RunAnew(), (Outcome{.found = 2, .selected = 1, .queriesFailed = 1}));
        Strings log = TakeLog();
        EXPECT_EQ(Strings(log.begin() + 2, log.end()), lines);
        EXPECT_EQ(Record(), kBase + 2);  // a dump that failed is dealt with for good
    }
}

TEST_F(Engine, GivesTheAddressOfAnExceptionElseZero) {
    AddDumps({kOurs, kOurs, kNoException});
    EXPECT_EQ(FieldOfEach("[2.dmp]\nGetLastEventInformation fail 0x80004005\n", "ErrAddr"),
              (Strings{"0xFFFFF80604001A2B", "0x0000000000000000", "0x0000000000000000"}));
}

TEST_F(Engine, NamesTheSameCrashByTheSameSignatureWhateverElseItPrints) {
    AddDumps({kOurs, kOurs, kOurs2});
    const Strings signatures = FieldOfEach("", "CrashSignature");
    EXPECT_EQ(signatures.at(0).size(), 32u);
    EXPECT_EQ(signatures.at(0), signatures.at(1));
    EXPECT_NE(signatures.at(0), signatures.at(2));
    EXPECT_EQ(FieldOfEach("OpenDumpFile babble 3000\nWaitForEvent babble 100\n", "CrashSignature"), signatures);
}

TEST_F(Engine, ReturnsFromItsCallBeforeRunningOutOfMemoryIsRaised) {
#ifdef _MSC_VER
    GTEST_SKIP() << "the runtime is part of the library and imports no malloc";
#endif
    AddDumps({kOurs});
    Script("WaitForEvent babble 300000\n");
    Configure();
    bool hasFailed = false;
    const ImportHook hook("malloc", std::malloc, [&](std::size_t size) -> void* {
        if (size < 100000 || hasFailed) return std::malloc(size);  // NOLINT(*-owning-memory): it is malloc
        hasFailed = true;
        return nullptr;
    });
    EXPECT_THROW(api_.run(&stats_), std::bad_alloc);
    EXPECT_TRUE(hasFailed);
    const Strings calls = Calls();
    ASSERT_GT(calls.size(), 4u);
    EXPECT_EQ(Strings(calls.end() - 4, calls.end()),
              (Strings{"WaitForEvent(0, ffffffff)", "SetOutputCallbacks(none)", "EndSession(1)", "last Release"}));
}

}  // namespace
}  // namespace zotest
