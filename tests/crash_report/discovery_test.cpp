// Which folder is looked in, which files in it are new dumps, and the record that tells.

#include <optional>

#include "format.h"
#include "owned_handles.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

class Discovery : public ReporterTest {
  protected:
    Discovery() { api_.networkOk(); }

    void AddFile(const std::string& name, std::size_t size, std::uint64_t lastWrite) {
        zotest::WriteFileBytes(dumps_ / name, std::string(size, 'x'));
        SetLastWrite(dumps_ / name, lastWrite);
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

TEST_F(Discovery, TakesWhatIsNewerThanTheRecordAndNoLargerThanTheLimitOldestFirst) {
    AddFile("d.dmp", 7, kBase + 1);
    AddFile("a.txt", 7, kBase + 3);
    AddFile("c", 7, kBase + 2);
    AddFile("empty", 0, kBase + 4);
    AddFile("large", 20, kBase + 5);
    zotest::WriteFileBytes(dumps_ / "folder" / "inner.dmp", "inner");
    struct Case {
        std::uint64_t record;
        std::uint64_t limit;
        const char* taken;
        std::uint64_t recordAfter;
    };
    const Case cases[] = {
        {0, 0, "d.dmp c a.txt empty large ", kBase + 5},
        {kBase, 19, "d.dmp c a.txt empty ", kBase + 4},
        {kBase + 1, 20, "c a.txt empty large ", kBase + 5},
        {kBase + 4, 19, "", kBase + 4},
        {~0ull, 0, "", ~0ull},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(zo::Format("record {} limit {}", c.record, c.limit));
        config_.maxDumpBytes = c.limit;
        Configure();
        SetRecord(c.record);
        EXPECT_EQ(Taken(), c.taken);
        EXPECT_EQ(Record(), c.recordAfter);
    }
}

TEST_F(Discovery, TakesTenMebibytesUnlessToldOtherwise) {
    AddFile("fits", 10485760, kBase);
    AddFile("too large", 10485761, kBase);
    Configure();
    EXPECT_EQ(Taken(), "fits ");
    EXPECT_EQ(Upload(dumps_ / "too large"), "0: 1 0 0 0 0 0 0");
    EXPECT_EQ(TakeLog().back(), "1 Analyze failed: ~\\dumps\\too large (0x80070570)");
}

TEST_F(Discovery, ReadsEightBytesOfTheRecordOrTakesEverything) {
    const std::string bytes("\x01\x40\x12\x6C\xF6\x48\xDA\x01", 8);
    std::uint64_t time = 0;
    std::memcpy(&time, bytes.data(), sizeof(time));
    AddDump("a.dmp", kNoDump, time);
    Configure();
    for (const std::optional<std::string>& record :
         std::initializer_list<std::optional<std::string>>{std::nullopt, "", bytes.substr(0, 7), bytes, bytes + "+"}) {
        SCOPED_TRACE(record ? zo::Format("{} bytes", record->size()) : "absent");
        zotest::RemoveTree(record_.parent_path().wstring());
        if (record) zotest::WriteFileBytes(record_, *record);
        const bool known = record && record->size() >= 8;
        EXPECT_EQ(Taken(), known ? "" : "a.dmp ");
        EXPECT_EQ(zotest::ReadFileBytes(record_), known ? *record : bytes);
    }
}

// It is no trouble; the dumps are merely new again.
TEST_F(Discovery, IgnoresThatTheRecordCannotBeWritten) {
    AddDump("a.dmp", kNoDump, kBase + 1);
    Configure();
    zotest::WriteFileBytes(record_.parent_path(), "a file where the folder should be");
    EXPECT_EQ(Taken() + Taken(), "a.dmp a.dmp ");
    zotest::RemoveTree(record_.parent_path().wstring());
    std::filesystem::create_directories(record_);
    EXPECT_EQ(Taken() + Taken(), "a.dmp a.dmp ");
    RemoveRecord();
    SetRecord(kBase);
    SetFileAttributesW(record_.c_str(), FILE_ATTRIBUTE_READONLY);
    // Root under Wine writes all the same.
    const bool writable = static_cast<bool>(
        zo::OwnedFile(CreateFileW(record_.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)));
    EXPECT_EQ(Taken() + Taken(), writable ? "a.dmp " : "a.dmp a.dmp ");
    EXPECT_EQ(Record(), writable ? kBase + 1 : kBase);
}

TEST_F(Discovery, WritesTheTimeOfASingleDumpWhateverTheRecordHeld) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase + 1);
    Configure();
    for (const std::uint64_t before : {std::uint64_t{0}, kBase, kBase + 1, kBase + 9}) {
        SetRecord(before);
        EXPECT_EQ(Upload(dump), "0: 1 1 0 0 1 0 0");
        EXPECT_EQ(Record(), kBase + 1);
    }
}

TEST_F(Discovery, LooksWhereTheRegistrySaysAndElseInTheWindowsFolder) {
    const std::wstring known = (folder_ / "named").wstring();
    std::filesystem::create_directories(known);
    SetEnvironmentVariableW(L"ZO_TEST_DUMPS", known.c_str());
    wchar_t windows[MAX_PATH] = L"";
    GetWindowsDirectoryW(windows, MAX_PATH);
    const std::string fallback = std::filesystem::path(windows).string() + "\\Minidump";
    const std::wstring end(1, L'\0');
    struct Case {
        DWORD type;  // REG_NONE: no such value
        std::wstring value;
        std::string folder;
    };
    const Case cases[] = {
        {REG_EXPAND_SZ, L"%ZO_TEST_DUMPS%" + end, "~\\named"},
        {REG_SZ, L"%ZO_TEST_DUMPS%\\x" + end, "~\\named\\x"},
        {REG_BINARY, known, "~\\named"},  // without a terminator
        {REG_SZ, end, fallback},
        {REG_SZ, std::wstring(), fallback},
        {REG_SZ, std::wstring(519, L'x') + end, std::string(519, 'x')},
        {REG_SZ, std::wstring(520, L'x') + end, fallback},
        {REG_NONE, std::wstring(), fallback},
    };
    const ZoCrashReportConfig config{nullptr, nullptr, nullptr, 0, L"", record_.c_str(), 0, 0, 0};
    api_.initialize(&config);
    SetRecord(~0ull);
    constexpr wchar_t kKey[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
    for (const Case& c : cases) {
        const auto size = static_cast<DWORD>(c.value.size() * sizeof(wchar_t));
        if (c.type != REG_NONE) {
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"MinidumpDir", c.type, c.value.data(), size);
        }
        EXPECT_EQ(api_.run(nullptr), 0);
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"MinidumpDir");
        const Strings log = TakeLog();
        EXPECT_EQ(log.front(), "0 Minidump dir: " + c.folder);
        EXPECT_EQ(log.back(), "0 Found 0 new minidump(s)");
    }
    SetEnvironmentVariableW(L"ZO_TEST_DUMPS", nullptr);
}

TEST_F(Discovery, GoesOnWithAFolderThatCannotBeProbed) {
    const std::filesystem::path missing = folder_ / "missing";
    config_.minidumpDir = missing.c_str();
    Configure();
    EXPECT_EQ(Run(), "0: 0 0 0 0 0 0 0");
    EXPECT_EQ(TakeLog(),
              (Strings{"0 Minidump dir: ~\\missing", "1 Probe of ~\\missing failed (Win32=3); proceeding anyway",
                       "0 Found 0 new minidump(s)"}));
}

}  // namespace
}  // namespace zocrashtest
