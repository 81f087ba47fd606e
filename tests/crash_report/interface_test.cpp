// Settings, target names, cancellation and the network gate, seen from outside: what stands in the documents, what is
// logged, what comes back.

#include <cwctype>
#include <thread>

#include "format.h"
#include "reporter_fixture.h"
#include "text.h"

namespace zocrashtest {
namespace {

using Interface = ReporterTest;

std::string MachineGuid() {
    wchar_t value[128] = L"";
    DWORD size = sizeof(value);
    RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid",
                 RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, value, &size);
    std::string text = "ZoProtector_";
    for (const wchar_t unit : std::wstring(value))
        if (unit != L'-') text += static_cast<char>(std::towlower(unit));
    return text;
}

std::string Now() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return zo::Format("{}-{}-{} {}:{}:{}", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
}

TEST_F(Interface, SendsWhatIsConfiguredAndDefaultsForWhatIsNot) {
    struct Case {
        bool nullRecord;
        const wchar_t* appName;
        const wchar_t* appVersion;
        std::uint32_t lcid;
        const char* sentName;
        const char* sentVersion;
        std::uint32_t sentLcid;
    };
    const Case cases[] = {
        {true, nullptr, nullptr, 0, "TeskShield", "100.0.100.1", 2502},
        {false, nullptr, nullptr, 0, "TeskShield", "100.0.100.1", 2502},
        {false, L"", L"", 0, "TeskShield", "100.0.100.1", 2502},
        {false, L"App <&>", L"2.0", 1033, "App <&>", "2.0", 1033},
        {false, L"Caf\u00E9\u4E2D", L"\u20AC", 1, "Caf\xE9?", "\x80", 1},  // in the ANSI code page
    };
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    Script("OutputStackTrace fail 0x80004005\n");
    api_.networkOk();
    const char* names[] = {"bugcheck code"};
    api_.setTargets(names, 1);
    OSVERSIONINFOW os{};
    os.dwOSVersionInfoSize = sizeof(os);
    GetVersionExW(&os);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sentName);
        const ZoCrashReportConfig config{L"", c.appName, c.appVersion, c.lcid, L"", L"", 0, 0, 0};
        api_.initialize(c.nullRecord ? nullptr : &config);
        documents_.clear();
        const std::string before = Now();
        EXPECT_EQ(Upload(dump), "0: 1 1 0 0 1 0 0");
        const std::string after = Now();
        ASSERT_EQ(documents_.size(), 1u);
        const std::string timestamp = Field(documents_[0], "TimeStamp");
        EXPECT_TRUE(timestamp == before || timestamp == after) << timestamp;
        const std::string expected = zo::Format(
            "<Crash_protocol>\r\n<AppName>{}</AppName>\r\n<AppVer>{}</AppVer>\r\n<Cmd>1</Cmd>\r\n"
            "<Contact>{}</Contact>\r\n<CrashSignature>{}</CrashSignature>\r\n<ErrAddr>{}</ErrAddr>\r\n"
            "<GUID_TeskWarden>{}</GUID_TeskWarden>\r\n<LCID>{}</LCID>\r\n<ModuleName>ntos</ModuleName>\r\n"
            "<OSBuildNo>{}</OSBuildNo>\r\n<OSID>{}</OSID>\r\n<OSMajVer>{}</OSMajVer>\r\n<OSMinVer>{}</OSMinVer>\r\n"
            "<TimeStamp>{}</TimeStamp>\r\n<ToolVer>3.1</ToolVer>\r\n<UIN>10000</UIN>\r\n</Crash_protocol>\r\n",
            c.sentName, c.sentVersion, ZO_CRASH_CONTACT, kBugcheckLineOnly, "0xFFFFF80604001A2B", MachineGuid(),
            c.sentLcid, os.dwBuildNumber, os.dwPlatformId, os.dwMajorVersion, os.dwMinorVersion, timestamp);
        EXPECT_EQ(documents_[0], expected);
    }
    // Without a path of its own the record is kept in the user's local data, and the call above has written it.
    wchar_t local[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"LOCALAPPDATA", local, MAX_PATH);
    record_ = std::filesystem::path(local) / "ZoProtector" / "crash_compare.dat";
    EXPECT_EQ(Record(), kBase);
    RemoveRecord();
}

TEST_F(Interface, MatchesTargetNamesInListOrderRegardlessOfCase) {
    struct Case {
        std::vector<const char*> names;
        bool nullArray;
        std::string matched;
    };
    const Case cases[] = {
        {{}, false, "ZoProtector"},  // the built-in names
        {{nullptr, "", "storage"}, false, ""},
        {{nullptr, "", "PROTECTOR+0X"}, false, "PROTECTOR+0X"},
        {{"nt+", "zoprotector", "nt+"}, false, "nt+|zoprotector|nt+"},
        {{"bugcheck CODE 1E"}, false, "bugcheck CODE 1E"},
        {{nullptr, ""}, false, "ZoProtector"},
        {{"nt"}, true, "ZoProtector"},
    };
    AddDump("a.dmp", kOurs, kBase);
    config_.uploadAll = 1;
    api_.networkOk();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.matched);
        api_.setTargets(c.nullArray ? nullptr : c.names.data(), static_cast<std::uint32_t>(c.names.size()));
        EXPECT_EQ(RunAnew(), "0: 1 1 0 0 1 0 0");
        EXPECT_EQ(TakeLog().back(), "0 Dump ~\\dumps\\a.dmp matched=[" + c.matched + "] upload=true");
        EXPECT_EQ(zo::Utf8FromWide(stats_.matchedDrivers), c.matched);
    }
}

TEST_F(Interface, CollectsMatchesOfARunAndAddsToTheCallersCounters) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    Configure();
    api_.networkOk();
    stats_ = {10, 20, 30, 40, 50, 60, 70, L"before"};
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Outcome(0, stats_), "0: 13 22 30 40 52 60 70");
    EXPECT_STREQ(stats_.matchedDrivers, L"ZoProtector;ZoProtector");
    EXPECT_EQ(Record(), kBase + 3);

    // What matched nothing leaves the text; without a logger and a record to fill there is silence.
    SetRecord(kBase + 1);
    const char* none[] = {"no such driver"};
    api_.setTargets(none, 1);
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Outcome(0, stats_), "0: 15 22 30 40 52 60 70");
    EXPECT_STREQ(stats_.matchedDrivers, L"ZoProtector;ZoProtector");
    TakeLog();
    SetRecord(kBase + 1);
    api_.setLogger(nullptr, this);
    EXPECT_EQ(api_.run(nullptr), 0);
    EXPECT_TRUE(TakeLog().empty());
    EXPECT_EQ(Record(), kBase + 3);

    const std::string longName(700, 'n');
    Script("OutputStackTrace say " + longName + "\n");
    const char* names[] = {longName.c_str()};
    api_.setTargets(names, 1);
    SetRecord(kBase + 1);
    EXPECT_EQ(Run(), "0: 2 2 0 0 2 0 0");
    EXPECT_EQ(std::wstring(stats_.matchedDrivers), std::wstring(700, L'n') + L";" + std::wstring(322, L'n'));
}

TEST_F(Interface, ChecksThePathOfASingleDump) {
    EXPECT_EQ(Upload(""), "80070057: 0 0 0 0 0 0 0");
    EXPECT_EQ(Upload(dumps_ / "missing.dmp"), "80070002: 0 0 0 0 0 0 0");
    EXPECT_EQ(static_cast<std::uint32_t>(api_.upload(nullptr, nullptr)), 0x80070057u);
    EXPECT_TRUE(TakeLog().empty());
}

// Where a cancel comes, what the run then answers, whether the caller's record is filled and the dedupe record moved.
TEST_F(Interface, StopsAtTheNextCheckAfterACancel) {
    struct Case {
        std::string when;  // the log line at whose delivery another thread cancels
        bool gateOpen;     // once open, it stays
        const char* outcome;
        std::uint64_t record;
        std::string lastLine;
    };
    constexpr char kNothing[] = "80004004: 0 0 0 0 0 0 0";
    const Case cases[] = {
        {"0 Found", false, "80070102: 2 0 0 0 0 0 0", 0, "1 Network never reported up; aborting"},
        {"before", true, kNothing, 0, ""},
        {"0 Minidump dir", true, kNothing, 0, "0 Found 2 new"},
        {"0 Found", true, kNothing, 0, "0 Found 2 new"},
        {"0 Dump ~\\dumps\\1.dmp", true, "80004004: 2 1 0 0 1 0 0", kBase + 2, "0 Dump ~\\dumps\\1.dmp"},
        {"document", true, "80004004: 2 1 0 0 1 0 0", kBase + 2, "0 Dump ~\\dumps\\1.dmp"},
        {"0 Dump ~\\dumps\\2.dmp", true, "80004004: 2 2 0 0 2 0 0", kBase + 2, "0 Dump ~\\dumps\\2.dmp"},
    };
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.when);
        const auto cancelAt = [&](const std::string& event) {
            if (event.starts_with(c.when)) std::thread(api_.cancel).join();
        };
        if (c.gateOpen) api_.networkOk();
        RemoveRecord();
        Configure();
        onLog_ = cancelAt;
        onDocument_ = [&] { cancelAt("document"); };
        cancelAt("before");
        EXPECT_EQ(Run(), c.outcome);
        EXPECT_EQ(Record(), c.record);
        const Strings log = TakeLog();
        EXPECT_TRUE(log.empty() ? c.lastLine.empty() : log.back().starts_with(c.lastLine));
        // It stays until it is taken back.
        EXPECT_EQ(Run(), kNothing);
        EXPECT_TRUE(TakeLog().empty());
    }
    api_.resetCancel();
    EXPECT_EQ(api_.run(nullptr), 0);
    api_.cancel();
    api_.uninitialize();
    EXPECT_EQ(api_.run(nullptr), 0);
}

TEST_F(Interface, WaitsAtTheGateForTheTimeACancelOrTheNetwork) {
    struct Case {
        std::uint32_t seconds;  // 0: the default of 300
        std::int32_t (*after200Ms)();
        const char* outcome;
        ULONGLONG atLeastMs;
        ULONGLONG belowMs;
    };
    constexpr char kNoNetwork[] = "80070102: 1 0 0 0 0 0 0";
    const Case cases[] = {
        {1, nullptr, kNoNetwork, 980, 3000},
        {0, api_.cancel, kNoNetwork, 180, 5000},
        {0, api_.networkOk, "0: 1 1 0 0 1 0 0", 180, 5000},
    };
    const std::filesystem::path dump = AddDump("1.dmp", kOurs, kBase + 1);
    for (const Case& c : cases) {
        config_.networkWaitSeconds = c.seconds;
        Configure();
        const ULONGLONG start = GetTickCount64();
        std::thread other([&] {
            Sleep(200);
            if (c.after200Ms != nullptr) c.after200Ms();
        });
        EXPECT_EQ(Upload(dump), c.outcome);
        const ULONGLONG waited = GetTickCount64() - start;
        other.join();
        EXPECT_TRUE(waited >= c.atLeastMs && waited < c.belowMs) << waited;
        if (c.outcome != kNoNetwork) continue;
        EXPECT_EQ(TakeLog(), Strings{"1 Network never reported up; aborting"});
        EXPECT_TRUE(EngineCalls().empty());
        EXPECT_EQ(Record(), 0u);
    }
    // A single dump is not refused because of an earlier cancel, only at the gate.
    api_.cancel();
    EXPECT_EQ(Upload(dump), "80004004: 0 0 0 0 0 0 0");
}

}  // namespace
}  // namespace zocrashtest
