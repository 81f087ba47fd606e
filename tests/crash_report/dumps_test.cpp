// Which files are new dumps and the record that tells, what is asked of the debugger engine about them in which order,
// and what becomes of a dump where it fails.

#include <optional>
#include <sstream>

#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

class Dumps : public ReporterTest {
  protected:
    Dumps() {
        api_.networkOk();
        config_.uploadAll = 1;
    }

    // The files that a run takes, in order. No engine opens them, so that each is named in a line of the log.
    std::string Taken() {
        TakeLog();
        EXPECT_EQ(api_.run(nullptr), 0);
        std::string taken;
        for (const std::string& line : TakeLog()) {
            const std::string start = "1 Analyze failed: ~\\dumps\\";
            if (line.starts_with(start)) taken += line.substr(start.size(), line.find(" (") - start.size()) + " ";
        }
        return taken;
    }
};

TEST_F(Dumps, TakesWhatIsNewerThanTheRecordAndNoLargerThanTheLimitOldestFirst) {
    AddFile("d.dmp", "1234567", kBase + 1);
    AddFile("a.txt", "1234567", kBase + 3);
    AddFile("c", "1234567", kBase + 2);
    AddFile("empty", "", kBase + 4);
    AddFile("20", std::string(20, 'x'), kBase + 5);
    AddFile("10M", std::string(10485760, 'x'), kBase + 6);
    const std::filesystem::path tooLarge = AddFile("more", std::string(10485761, 'x'), kBase + 7);
    zotest::WriteFileBytes(dumps_ / "folder" / "inner.dmp", "inner");
    const struct {
        std::uint64_t record;
        std::uint64_t limit;
        const char* taken;
        std::uint64_t recordAfter;
    } cases[] = {
        {0, 0, "d.dmp c a.txt empty 20 10M ", kBase + 6},  // a limit of 0 is the default of ten mebibytes
        {kBase, 19, "d.dmp c a.txt empty ", kBase + 4},
        {kBase + 1, 20, "c a.txt empty 20 ", kBase + 5},
        {kBase + 4, 19, "", kBase + 4},
        {~0ull, 0, "", ~0ull},
    };
    for (const auto& [record, limit, taken, recordAfter] : cases) {
        SCOPED_TRACE(zo::Format("record {} limit {}", record, limit));
        config_.maxDumpBytes = limit;
        Configure();
        SetRecord(record);
        EXPECT_EQ(Taken(), taken);
        EXPECT_EQ(Record(), recordAfter);
    }
    // Asked for by its path a dump is taken whatever its size, and its time written whatever the record held.
    EXPECT_EQ(Upload(tooLarge), "0: 1 0 0 0 0 0 0");
    EXPECT_EQ(TakeLog().back(), "1 Analyze failed: ~\\dumps\\more (0x80070570)");
    EXPECT_EQ(Record(), kBase + 7);

    const std::filesystem::path missing = folder_ / "missing";
    config_.minidumpDir = missing.c_str();
    Configure();
    EXPECT_EQ(Run(), "0: 0 0 0 0 0 0 0");
    EXPECT_EQ(TakeLog(),
              (Strings{"0 Minidump dir: ~\\missing", "1 Probe of ~\\missing failed (Win32=3); proceeding anyway",
                       "0 Found 0 new minidump(s)"}));
}

TEST_F(Dumps, AreAllNewWithoutEightBytesOfARecord) {
    const std::string bytes("\x01\x40\x12\x6C\xF6\x48\xDA\x01", 8);
    AddDump("a.dmp", kNoDump, 0x01DA48F66C124001);
    Configure();
    for (const std::string& record : {std::string(), bytes.substr(0, 7), bytes, bytes + "+"}) {
        zotest::WriteFileBytes(record_, record);
        EXPECT_EQ(Taken(), record.size() >= 8 ? "" : "a.dmp ") << record.size();
        EXPECT_EQ(zotest::ReadFileBytes(record_), record.size() >= 8 ? record : bytes);
    }
    zotest::RemoveTree(record_.parent_path().wstring());
    EXPECT_EQ(Taken(), "a.dmp ");
    EXPECT_EQ(zotest::ReadFileBytes(record_), bytes);

    // That it cannot be written is no trouble; the dumps are merely new again.
    zotest::RemoveTree(record_.parent_path().wstring());
    zotest::WriteFileBytes(record_.parent_path(), "a file where the folder should be");
    EXPECT_EQ(Taken() + Taken(), "a.dmp a.dmp ");
    zotest::RemoveTree(record_.parent_path().wstring());
    SetRecord(1);
    SetFileAttributesW(record_.c_str(), FILE_ATTRIBUTE_READONLY);
    // Root under Wine writes all the same.
    const bool writable = static_cast<bool>(
        zo::OwnedFile(CreateFileW(record_.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)));
    EXPECT_EQ(Taken() + Taken(), writable ? "a.dmp " : "a.dmp a.dmp ");
    EXPECT_EQ(Record() != 1, writable);
}

// A key of the test's own in the place of HKEY_LOCAL_MACHINE, so that the machine's settings stay untouched.
class OwnMachineKey {
  public:
    OwnMachineKey() {
        RegCreateKeyW(HKEY_CURRENT_USER, kName, key_.Out());
        EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, key_.Get()), ERROR_SUCCESS);
    }
    ~OwnMachineKey() {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, kName);
    }
    OwnMachineKey(const OwnMachineKey&) = delete;
    OwnMachineKey& operator=(const OwnMachineKey&) = delete;

  private:
    static constexpr wchar_t kName[] = L"zotest_machine";
    zo::OwnedRegistryKey key_;
};

TEST_F(Dumps, LooksWhereTheRegistrySaysAndElseInTheWindowsFolder) {
    const OwnMachineKey machine;
    std::filesystem::create_directories(folder_ / "named");
    const std::wstring known = (folder_ / "named").wstring();
    const zotest::ScopedEnvironment dumps(L"ZO_TEST_DUMPS", known);
    const std::string fallback = std::string(std::getenv("SystemRoot")) + "\\Minidump";
    const std::wstring end(1, L'\0');
    const struct {
        std::optional<std::wstring> value;
        std::string folder;
    } cases[] = {
        {L"%ZO_TEST_DUMPS%" + end, "~\\named"},
        {known, "~\\named"},  // without a terminator
        {end, fallback},
        {std::wstring(519, L'x') + end, std::string(519, 'x')},
        {std::wstring(520, L'x') + end, fallback},
        {std::nullopt, fallback},
    };
    config_.minidumpDir = L"";
    Configure();
    SetRecord(~0ull);
    constexpr wchar_t kKey[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
    for (const auto& [value, folder] : cases) {
        if (value) {
            const auto size = static_cast<DWORD>(value->size() * sizeof(wchar_t));
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"MinidumpDir", REG_BINARY, value->data(), size);
        }
        EXPECT_EQ(api_.run(nullptr), 0);
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"MinidumpDir");
        const Strings log = TakeLog();
        EXPECT_EQ(log.front(), "0 Minidump dir: " + folder);
        EXPECT_EQ(log.back(), "0 Found 0 new minidump(s)");
    }
}

TEST_F(Dumps, OpensTheEngineOnceAndEachDumpInTurn) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    EXPECT_EQ(RunAnew(), "0: 2 2 0 0 2 0 0");
    Strings expected = {"QueryInterface(IDebugClient)", "DebugCreate()", "QueryInterface(IDebugControl)",
                        "SetOutputCallbacks(object)", "SetOutputMask(0x1)"};
    for (const char* open : {"OpenDumpFile(~\\dumps\\1.dmp)", "OpenDumpFile(~\\dumps\\2.dmp)"}) {
        expected.insert(expected.end(),
                        {open, "WaitForEvent(0, ffffffff)", "ReadBugCheckData()", "OutputStackTrace(1, none, 50, 0x0)",
                         "GetLastEventInformation(2000 bytes)", "EndSession(1)"});
    }
    expected.insert(expected.end(), {"SetOutputCallbacks(none)", "EndSession(1)", "last Release"});
    std::istringstream text(zotest::ReadFileBytes(folder_ / "engine.log"));
    Strings calls;
    for (std::string line; std::getline(text, line);)
        calls.push_back(Shortened(line.substr(0, line.find(" = "))));
    EXPECT_EQ(calls, expected);
}

TEST_F(Dumps, FailTheRunWithoutAnEngineAndElseOnlyThemselves) {
    const std::string first = "1 Analyze failed: ~\\dumps\\1.dmp (0x", engine = "2 DbgEng load failed: 0x";
    const std::string one = "0 Dump ~\\dumps\\1.dmp matched=[ZoProtector] upload=true";
    const std::string two = "0 Dump ~\\dumps\\2.dmp matched=[ZoProtector] upload=true";
    const struct {
        const char* script;
        const char* outcome;
        Strings lines;
    } cases[] = {
        {"DebugCreate fail 0x80004001", "80004001: 2 0 0 0 0 0 0", {engine + "80004001"}},
        {"DebugCreate null", "80004005: 2 0 0 0 0 0 0", {engine + "80004005"}},
        {"QueryInterface fail 0x80004002", "80004002: 2 0 0 0 0 0 0", {engine + "80004002"}},
        {"QueryInterface null", "80004005: 2 0 0 0 0 0 0", {engine + "80004005"}},
        {"Load fail 0x80004005", "8007045a: 2 0 0 0 0 0 0", {engine + "8007045a"}},
        {"[1.dmp]\nReadBugCheckData fail 0x8000ffff", "0: 2 1 0 0 1 0 0", {first + "8000ffff)", two}},
        // Gone since it was listed.
        {"[1.dmp]\nOpenDumpFile delete", "0: 2 1 0 0 1 0 0", {first + "80070002)", two}},
        // Ignored, but then the dump is not there, or the next one cannot be opened.
        {"[1.dmp]\nWaitForEvent fail 0x80004005", "0: 2 1 0 0 1 0 0", {first + "8000ffff)", two}},
        {"[1.dmp]\nEndSession fail 0x80004005",
         "0: 2 1 0 0 1 0 0",
         {one, "1 Analyze failed: ~\\dumps\\2.dmp (0x8000ffff)"}},
    };
    for (const auto& [script, outcome, lines] : cases) {
        AddDump("1.dmp", kOurs, kBase + 1);
        AddDump("2.dmp", kOurs2, kBase + 2);
        Script(script);
        EXPECT_EQ(RunAnew(), outcome) << script;
        Strings expected{"0 Minidump dir: ~\\dumps", "0 Found 2 new minidump(s)"};
        expected.insert(expected.end(), lines.begin(), lines.end());
        EXPECT_EQ(TakeLog(), expected);
        // A dump that failed is dealt with for good.
        EXPECT_EQ(Record(), lines.size() == 2 ? kBase + 2 : 0);
    }
}

TEST_F(Dumps, NamesTheCrashByTheMd5OfItsTextAndTheExceptionByItsAddress) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    AddDump("4.dmp", kNoException, kBase + 4);
    const auto fields = [this](const char* script, const char* name) {
        Script(script);
        EXPECT_EQ(RunAnew(), "0: 4 4 0 0 4 0 0");
        Strings values;
        for (const std::string& document : documents_)
            values.push_back(Field(document, name));
        return values;
    };
    constexpr char kNone[] = "0x0000000000000000";
    EXPECT_EQ(fields("[2.dmp]\nGetLastEventInformation fail 0x80004005\n", "ErrAddr"),
              (Strings{"0xFFFFF80604001A2B", kNone, "0xFFFFF80604000077", kNone}));
    const Strings signatures = fields("", "CrashSignature");
    EXPECT_EQ(signatures[0].size(), 32u);
    EXPECT_EQ(signatures[0], signatures[1]);
    EXPECT_NE(signatures[0], signatures[2]);
    // Chatter while a dump is opened or loaded is no part of its text.
    EXPECT_EQ(fields("OpenDumpFile babble 3000\nWaitForEvent babble 100\n", "CrashSignature"), signatures);
}

}  // namespace
}  // namespace zocrashtest
