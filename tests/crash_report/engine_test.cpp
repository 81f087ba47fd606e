// What is asked of the debugger engine in which order, what is made of its answers, and what a failure of it costs.

#include <cstdlib>
#include <new>
#include <sstream>

#include "import_hook.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

class Engine : public ReporterTest {
  protected:
    Engine() {
        api_.networkOk();
        config_.uploadAll = 1;
    }
    // The calls that the engine has recorded, without their results.
    Strings Calls() {
        std::istringstream text(zotest::ReadFileBytes(folder_ / "engine.log"));
        Strings calls;
        for (std::string line; std::getline(text, line);)
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
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    EXPECT_EQ(RunAnew(), (Outcome{.found = 2, .selected = 2, .queriesFailed = 2}));
    Strings expected = {"QueryInterface(IDebugClient)", "DebugCreate()", "QueryInterface(IDebugControl)",
                        "SetOutputCallbacks(object)", "SetOutputMask(0x1)"};
    for (const char* open : {"OpenDumpFile(~\\dumps\\1.dmp)", "OpenDumpFile(~\\dumps\\2.dmp)"}) {
        expected.insert(expected.end(),
                        {open, "WaitForEvent(0, ffffffff)", "ReadBugCheckData()", "OutputStackTrace(1, none, 50, 0x0)",
                         "GetLastEventInformation(2000 bytes)", "EndSession(1)"});
    }
    expected.insert(expected.end(), {"SetOutputCallbacks(none)", "EndSession(1)", "last Release"});
    EXPECT_EQ(Calls(), expected);
}

TEST_F(Engine, ThatCannotBeSetUpFailsTheRun) {
    const struct {
        const char* script;
        std::uint32_t status;
    } cases[] = {
        {"DebugCreate fail 0x80004001", 0x80004001},    {"DebugCreate null", 0x80004005},
        {"QueryInterface fail 0x80004002", 0x80004002}, {"QueryInterface null", 0x80004005},
        {"Load fail 0x80004005", 0x8007045a},
    };
    AddDump("1.dmp", kOurs, kBase + 1);
    for (const auto& [script, status] : cases) {
        Script(script);
        EXPECT_EQ(RunAnew(), (Outcome{.status = status, .found = 1})) << script;
        EXPECT_EQ(TakeLog().back(), zo::Format("2 DbgEng load failed: 0x{:08x}", status));
        EXPECT_EQ(Record(), 0u);  // the next run finds the dump again
    }
}

TEST_F(Engine, FailingOnOneDumpSparesTheOthers) {
    const std::string first = "1 Analyze failed: ~\\dumps\\1.dmp (0x";
    const std::string second = "0 Dump ~\\dumps\\2.dmp matched=[ZoProtector] upload=true";
    const struct {
        const char* name;
        const char* script;
        Strings lines;
    } cases[] = {
        {"no bugcheck", "[1.dmp]\nReadBugCheckData fail 0x8000ffff", {first + "8000ffff)", second}},
        {"gone since it was listed", "[1.dmp]\nOpenDumpFile delete", {first + "80070002)", second}},
        // The result of the wait is ignored, but then nothing is loaded.
        {"never loaded", "[1.dmp]\nWaitForEvent fail 0x80004005", {first + "8000ffff)", second}},
        {"not closed, so that the next one cannot be opened",
         "[1.dmp]\nEndSession fail 0x80004005",
         {"0 Dump ~\\dumps\\1.dmp matched=[ZoProtector] upload=true",
          "1 Analyze failed: ~\\dumps\\2.dmp (0x8000ffff)"}},
    };
    for (const auto& [name, script, lines] : cases) {
        SCOPED_TRACE(name);
        AddDump("1.dmp", kOurs, kBase + 1);
        AddDump("2.dmp", kOurs2, kBase + 2);
        Script(script);
        EXPECT_EQ(RunAnew(), (Outcome{.found = 2, .selected = 1, .queriesFailed = 1}));
        Strings log = TakeLog();
        EXPECT_EQ(Strings(log.begin() + 2, log.end()), lines);
        EXPECT_EQ(Record(), kBase + 2);  // a dump that failed is dealt with for good
    }
}

TEST_F(Engine, GivesTheAddressOfAnExceptionElseZero) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    AddDump("3.dmp", kNoException, kBase + 3);
    EXPECT_EQ(FieldOfEach("[2.dmp]\nGetLastEventInformation fail 0x80004005\n", "ErrAddr"),
              (Strings{"0xFFFFF80604001A2B", "0x0000000000000000", "0x0000000000000000"}));
}

TEST_F(Engine, NamesTheSameCrashByTheSameSignatureWhateverElseItPrints) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    const Strings signatures = FieldOfEach("", "CrashSignature");
    EXPECT_EQ(signatures.at(0).size(), 32u);
    EXPECT_EQ(signatures.at(0), signatures.at(1));
    EXPECT_NE(signatures.at(0), signatures.at(2));
    EXPECT_EQ(FieldOfEach("OpenDumpFile babble 3000\nWaitForEvent babble 100\n", "CrashSignature"), signatures);
}

bool allocationFailed = false;

void* FailTheFirstLargeAllocation(std::size_t size) {
    if (size < 100000 || allocationFailed) return std::malloc(size);
    allocationFailed = true;
    return nullptr;
}

TEST_F(Engine, ReturnsFromItsCallBeforeRunningOutOfMemoryIsRaised) {
#ifdef _MSC_VER
    GTEST_SKIP() << "the runtime is part of the library and imports no malloc";
#endif
    AddDump("1.dmp", kOurs, kBase + 1);
    Script("WaitForEvent babble 300000\n");
    Configure();
    allocationFailed = false;
    const zotest::ImportHook hook("malloc", FailTheFirstLargeAllocation);
    EXPECT_THROW(api_.run(&stats_), std::bad_alloc);
    EXPECT_TRUE(allocationFailed);
    const Strings calls = Calls();
    ASSERT_GT(calls.size(), 4u);
    EXPECT_EQ(Strings(calls.end() - 4, calls.end()),
              (Strings{"WaitForEvent(0, ffffffff)", "SetOutputCallbacks(none)", "EndSession(1)", "last Release"}));
}

// Two objects of an engine; all methods of either count their calls, but the client refuses to give another interface.
struct FakeObject {
    const void* const* methods;
    int calls = 0;
};
HRESULT STDMETHODCALLTYPE CountCall(FakeObject* self) {
    ++self->calls;
    return S_OK;
}
HRESULT STDMETHODCALLTYPE LeaveJunk(FakeObject*, REFIID, void** object);
const void* junkMethods[128];
const void* clientMethods[128];
FakeObject junk{junkMethods};
FakeObject client{clientMethods};

HRESULT STDMETHODCALLTYPE LeaveJunk(FakeObject*, REFIID, void** object) {
    *object = &junk;
    return E_NOINTERFACE;
}
HRESULT WINAPI FailAndLeaveJunk(REFIID, void** object) {
    *object = &junk;
    return E_FAIL;
}
HRESULT WINAPI GiveClient(REFIID, void** object) {
    *object = &client;
    return S_OK;
}

decltype(&GiveClient) fakeCreate = nullptr;

FARPROC WINAPI FindFakeCreate(HMODULE module, const char* name) {
    if (std::strcmp(name, "DebugCreate") != 0) return GetProcAddress(module, name);
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(fakeCreate));
}

TEST_F(Engine, IsNotCalledThroughAPointerThatAFailedCallLeft) {
    std::fill(std::begin(junkMethods), std::end(junkMethods), reinterpret_cast<const void*>(&CountCall));
    std::fill(std::begin(clientMethods), std::end(clientMethods), reinterpret_cast<const void*>(&CountCall));
    clientMethods[0] = reinterpret_cast<const void*>(&LeaveJunk);
    const struct {
        const char* name;
        decltype(&GiveClient) create;
        std::uint32_t status;
    } cases[] = {
        {"DebugCreate", FailAndLeaveJunk, 0x80004005},
        {"QueryInterface", GiveClient, 0x80004002},
    };
    AddDump("1.dmp", kOurs, kBase + 1);
    const zotest::ImportHook hook("GetProcAddress", FindFakeCreate);
    for (const auto& [name, create, status] : cases) {
        fakeCreate = create;
        EXPECT_EQ(RunAnew(), (Outcome{.status = status, .found = 1})) << name;
        EXPECT_EQ(junk.calls, 0) << name;
    }
    EXPECT_GT(client.calls, 0);  // what was really handed out is released
}

}  // namespace
}  // namespace zocrashtest
