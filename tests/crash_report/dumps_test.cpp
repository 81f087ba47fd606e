// Which files are new dumps, the record that decides it, and where the dumps are looked for.

#include <optional>

#include "reporter_fixture.h"

namespace zotest {
namespace {

class NewDumps : public ReporterTest {
  protected:
    NewDumps() { config_.uploadAll = 1; }

    // The files that a run takes, in order. The engine opens none of them, so that each is named in a line of the log.
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

TEST_F(NewDumps, AreThoseAfterTheRecordUpToTheLimitOldestFirst) {
    AddFile("d.dmp", "1234567", kBase + 1);
    AddFile("a.txt", "1234567", kBase + 3);
    AddFile("c", "1234567", kBase + 2);
    AddFile("empty", "", kBase + 4);
    AddFile("20", std::string(20, 'x'), kBase + 5);
    std::string large;
    large.resize(10485760);
    AddFile("10M", large, kBase + 6);
    AddFile("more", large + "x", kBase + 7);
    WriteFileBytes(dumps_ / "folder" / "inner.dmp", "inner");
    const Rows<std::uint64_t, std::uint64_t, const char*, std::uint64_t> rows = {
        {"the default limit of ten mebibytes", 0, 0, "d.dmp c a.txt empty 20 10M ", kBase + 6},
        {"one byte above the limit", kBase, 19, "d.dmp c a.txt empty ", kBase + 4},
        {"of the record's own time", kBase + 1, 20, "c a.txt empty 20 ", kBase + 5},
        {"nothing new", kBase + 4, 19, "", kBase + 4},
        {"the latest record", ~0ull, 0, "", ~0ull},
    };
    for (const auto& [name, record, limit, taken, recordAfter] : rows) {
        SCOPED_TRACE(name);
        config_.maxDumpBytes = limit;
        Configure();
        SetRecord(record);
        EXPECT_EQ(Taken(), taken);
        EXPECT_EQ(Record(), recordAfter);
    }
}

TEST_F(NewDumps, HaveTheSizeOfTheFileWhereALinkIsListed) {
    AddFile("large link", "12345678901", kBase);
    AddFile("link", "1234567890", kBase + 1);
    AddFile("listed", "1", kBase + 2);
    config_.maxDumpBytes = 10;
    Configure();
    const ImportHook hook("FindNextFileW", FindNextFileW, [](HANDLE search, WIN32_FIND_DATAW* found) {
        const BOOL more = FindNextFileW(search, found);
        const bool isLink = std::wstring_view(found->cFileName).ends_with(L"link");
        found->nFileSizeLow = isLink ? 0 : 11;
        if (isLink) found->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        return more;
    });
    EXPECT_EQ(Taken(), "link ");
}

TEST_F(NewDumps, AreNotTakenFromAListingThatBreaksOff) {
    AddFile("a.dmp", "1", kBase);
    Configure();
    const ImportHook hook("FindNextFileW", FailWith<ERROR_NETNAME_DELETED>);
    EXPECT_THROW(api_.run(nullptr), std::filesystem::filesystem_error);
    EXPECT_EQ(Record(), 0u);
}

TEST_F(NewDumps, AreNoneInAMissingFolder) {
    const std::filesystem::path missing = folder_ / "missing";
    config_.minidumpDir = missing.c_str();
    Configure();
    EXPECT_EQ(Run(), Outcome{});
    EXPECT_EQ(TakeLog(),
              (Strings{"0 Minidump dir: ~\\missing", "1 Probe of ~\\missing failed (Win32=3); proceeding anyway",
                       "0 Found 0 new minidump(s)"}));
}

TEST_F(NewDumps, DoNotIncludeTheSingleDumpButItsTimeIsRecorded) {
    const std::filesystem::path tooLarge = AddFile("a.dmp", "too large", kBase + 7);
    config_.maxDumpBytes = 1;
    Configure();
    SetRecord(kBase + 9);
    EXPECT_EQ(Upload(tooLarge), (Outcome{.found = 1}));
    EXPECT_EQ(TakeLog().back(), "1 Analyze failed: ~\\dumps\\a.dmp (0x80070570)");
    EXPECT_EQ(Record(), kBase + 7);
}

using DedupeRecord = NewDumps;

TEST_F(DedupeRecord, CountsOnlyWithEightBytes) {
    const std::string eight = std::string("\x01\x40\x12\x6C\xF6\x48\xDA\x01", 8);
    AddDump("a.dmp", kNoDump, 0x01DA48F66C124001);
    Configure();
    for (const std::string& record : {std::string(), eight.substr(0, 7), eight, eight + "+"}) {
        SCOPED_TRACE(zo::Format("{} bytes", record.size()));
        WriteFileBytes(record_, record);
        const bool counts = record.size() >= 8;
        EXPECT_EQ(Taken(), counts ? "" : "a.dmp ");
        EXPECT_EQ(ReadFileBytes(record_), counts ? record : eight);
    }
}

TEST_F(DedupeRecord, OffersDumpsAgainWhenItsFolderCannotBeMade) {
    AddDump("a.dmp", kNoDump, kBase);
    Configure();
    WriteFileBytes(record_.parent_path(), "a file where the folder should be");
    EXPECT_EQ(Taken() + Taken(), "a.dmp a.dmp ");
}

// HKEY_LOCAL_MACHINE of this process is a key of its own, so that no setting of the machine is touched.
class DumpFolder : public NewDumps {
  protected:
    DumpFolder() {
        config_.minidumpDir = L"";
        Configure();
        SetRecord(~0ull);
        RegCreateKeyExW(HKEY_CURRENT_USER, kOwnKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, machine_.Out(), nullptr);
        EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine_.Get()), ERROR_SUCCESS);
    }
    void TearDown() override {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, kOwnKey);
    }

    static constexpr wchar_t kOwnKey[] = L"Software\\zo_dump_folder_test";
    zo::OwnedRegistryKey machine_;
};

TEST_F(DumpFolder, IsTheOneThatTheRegistryNamesElseThatOfWindows) {
    const std::wstring known = (folder_ / "named").wstring();
    std::filesystem::create_directories(known);
    const ScopedEnvironment dumps(L"ZO_TEST_DUMPS", known);
    const std::string ofWindows = Environment("SystemRoot") + "\\Minidump";
    const std::wstring end(1, L'\0');
    const Rows<std::optional<std::wstring>, std::string> rows = {
        {"with a variable", L"%ZO_TEST_DUMPS%" + end, "~\\named"},
        {"without a terminator", known, "~\\named"},
        {"empty text", end, ofWindows},
        {"no bytes at all", L"", ofWindows},
        {"the longest", std::wstring(519, L'x') + end, std::string(519, 'x')},
        {"too long", std::wstring(520, L'x') + end, ofWindows},
        {"no value", std::nullopt, ofWindows},
    };
    constexpr wchar_t kKey[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
    for (const auto& [name, value, folder] : rows) {
        SCOPED_TRACE(name);
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"MinidumpDir");
        if (value) {
            const auto size = static_cast<DWORD>(value->size() * sizeof(wchar_t));
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"MinidumpDir", REG_BINARY, value->data(), size);
        }
        EXPECT_EQ(api_.run(nullptr), 0);
        EXPECT_EQ(TakeLog().front(), "0 Minidump dir: " + folder);
    }
}

TEST_F(DumpFolder, MissingEverywhereFailsTheRun) {
    const ImportHook hook("GetWindowsDirectoryW", FailWith<ERROR_PATH_NOT_FOUND>);
    EXPECT_EQ(Run(), (Outcome{.status = 0x80070003}));
    EXPECT_EQ(TakeLog(), Strings());
}

}  // namespace
}  // namespace zotest
