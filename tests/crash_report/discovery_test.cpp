// Which folder is looked in, which files in it are new dumps, and the record that tells.

#include <optional>

#include "format.h"
#include "owned_handles.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

using Strings = std::vector<std::string>;

constexpr std::uint64_t kBase = 133500000000000000;

class Discovery : public ReporterTest {
  protected:
    Discovery() { api_.notifyNetworkOk(); }

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
    AddDump("d.dmp", kNoDump, kBase + 1);
    AddDump("a.txt", kNoDump, kBase + 3);
    AddDump("c", kNoDump, kBase + 2);
    zotest::WriteFileBytes(dumps_ / "empty", "");
    SetLastWrite(dumps_ / "empty", kBase + 4);
    zotest::WriteFileBytes(dumps_ / "large", std::string(20, 'x'));
    SetLastWrite(dumps_ / "large", kBase + 5);
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
        {kBase + 5, 0, "", kBase + 5},
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
    for (const auto& [name, size] : {std::pair("fits", 10485760), std::pair("too large", 10485761)}) {
        zotest::WriteFileBytes(dumps_ / name, std::string(static_cast<std::size_t>(size), 'x'));
    }
    Configure();
    EXPECT_EQ(Taken(), "fits ");
    // What was too large is not offered later either, once the record has passed it; a call for it alone takes it.
    EXPECT_EQ(api_.uploadSingleDump((dumps_ / "too large").c_str(), nullptr), 0);
    EXPECT_EQ(TakeLog().back(), "1 Analyze failed: ~\\dumps\\too large (0x80070570)");
}

TEST_F(Discovery, ReadsEightBytesOfTheRecordOrTakesEverything) {
    const std::string bytes("\x01\x40\x12\x6C\xF6\x48\xDA\x01", 8);
    struct Case {
        const char* what;
        std::optional<std::string> record;
        bool known;
    };
    const Case cases[] = {
        {"absent", std::nullopt, false},
        {"empty", "", false},
        {"seven bytes", bytes.substr(0, 7), false},
        {"eight bytes", bytes, true},
        {"longer", bytes + "more", true},
    };
    std::uint64_t time = 0;
    std::memcpy(&time, bytes.data(), sizeof(time));
    AddDump("a.dmp", kNoDump, time);
    Configure();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        zotest::RemoveTree(record_.parent_path().wstring());
        if (c.record) zotest::WriteFileBytes(record_, *c.record);
        EXPECT_EQ(Taken(), c.known ? "" : "a.dmp ");
        EXPECT_EQ(zotest::ReadFileBytes(record_), c.known ? *c.record : bytes);
    }
    // A record that cannot be written is no trouble; the dumps are merely new again.
    zotest::RemoveTree(record_.parent_path().wstring());
    zotest::WriteFileBytes(record_.parent_path(), "a file where the folder should be");
    EXPECT_EQ(Taken(), "a.dmp ");
    EXPECT_EQ(Taken(), "a.dmp ");
    zotest::RemoveTree(record_.parent_path().wstring());
    std::filesystem::create_directories(record_);
    EXPECT_EQ(Taken(), "a.dmp ");
    EXPECT_EQ(Taken(), "a.dmp ");
}

TEST_F(Discovery, WritesTheTimeOfASingleDumpWhateverTheRecordHeld) {
    const std::wstring dump = AddDump("a.dmp", kOurs, kBase + 1).wstring();
    Configure();
    for (const std::uint64_t before : {std::uint64_t{0}, kBase, kBase + 1, kBase + 9}) {
        SetRecord(before);
        EXPECT_EQ(api_.uploadSingleDump(dump.c_str(), nullptr), 0);
        EXPECT_EQ(Record(), kBase + 1);
    }
}

// One registry value for its lifetime.
class MinidumpDirValue {
  public:
    explicit MinidumpDirValue(DWORD type, const std::wstring& data) {
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key_.Out(), nullptr);
        RegSetValueExW(key_.Get(), L"MinidumpDir", 0, type, reinterpret_cast<const BYTE*>(data.data()),
                       static_cast<DWORD>(data.size() * sizeof(wchar_t)));
    }
    ~MinidumpDirValue() { RegDeleteValueW(key_.Get(), L"MinidumpDir"); }
    MinidumpDirValue(const MinidumpDirValue&) = delete;
    MinidumpDirValue& operator=(const MinidumpDirValue&) = delete;

  private:
    static constexpr wchar_t kKey[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
    zo::OwnedRegistryKey key_;
};

TEST_F(Discovery, LooksWhereTheRegistrySaysAndElseInTheWindowsFolder) {
    const std::wstring known = (folder_ / "named").wstring();
    std::filesystem::create_directories(known);
    SetEnvironmentVariableW(L"ZO_TEST_DUMPS", known.c_str());
    const std::wstring terminated(1, L'\0');
    wchar_t windows[MAX_PATH] = L"";
    GetWindowsDirectoryW(windows, MAX_PATH);
    const std::string fallback = "0 Minidump dir: " + std::filesystem::path(windows).string() + "\\Minidump";
    struct Case {
        DWORD type;
        std::wstring value;
        std::string line;
    };
    const Case cases[] = {
        {REG_EXPAND_SZ, L"%ZO_TEST_DUMPS%" + terminated, "0 Minidump dir: ~\\named"},
        {REG_SZ, L"%ZO_TEST_DUMPS%\\x" + terminated, "0 Minidump dir: ~\\named\\x"},
        {REG_BINARY, known, "0 Minidump dir: ~\\named"},  // without a terminator
        {REG_SZ, terminated, fallback},
        {REG_SZ, std::wstring(), fallback},
        {REG_SZ, std::wstring(519, L'x') + terminated, "0 Minidump dir: " + std::string(519, 'x')},
        {REG_SZ, std::wstring(520, L'x') + terminated, fallback},
    };
    config_.minidumpDir = L"";
    const ZoCrashReportConfig config{nullptr, nullptr, nullptr, 0, nullptr, record_.c_str(), 0, 0, 0};
    api_.initialize(&config);
    SetRecord(~0ull);
    for (const Case& c : cases) {
        const MinidumpDirValue value(c.type, c.value);
        EXPECT_EQ(api_.run(nullptr), 0);
        const Strings log = TakeLog();
        ASSERT_FALSE(log.empty());
        EXPECT_EQ(log.front(), c.line);
        EXPECT_EQ(log.back(), "0 Found 0 new minidump(s)");
    }
    EXPECT_EQ(api_.run(nullptr), 0);
    EXPECT_EQ(TakeLog().front(), fallback);
    SetEnvironmentVariableW(L"ZO_TEST_DUMPS", nullptr);
}

TEST_F(Discovery, GoesOnWithAFolderThatCannotBeProbed) {
    zotest::WriteFileBytes(folder_ / "file", "");
    struct Case {
        std::filesystem::path folder;
        const char* name;
        DWORD error;  // 0: any
    };
    const Case cases[] = {{folder_ / "missing", "~\\missing", ERROR_PATH_NOT_FOUND}, {folder_ / "file", "~\\file", 0}};
    for (const Case& c : cases) {
        config_.minidumpDir = c.folder.c_str();
        Configure();
        EXPECT_EQ(api_.run(&stats_), 0);
        const Strings log = TakeLog();
        ASSERT_EQ(log.size(), 3u);
        EXPECT_TRUE(log[1].starts_with(std::string("1 Probe of ") + c.name + " failed (Win32=") &&
                    log[1].ends_with("); proceeding anyway"))
            << log[1];
        if (c.error != 0) {
            EXPECT_EQ(log[1], zo::Format("1 Probe of {} failed (Win32={}); proceeding anyway", c.name, c.error));
        }
        EXPECT_EQ(log[2], "0 Found 0 new minidump(s)");
    }
}

}  // namespace
}  // namespace zocrashtest
