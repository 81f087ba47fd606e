// Settings, target names, cancellation and the network gate, seen from outside: what stands in the documents, what is
// logged, what comes back.

#include <chrono>
#include <cwctype>
#include <thread>

#include "format.h"
#include "owned_handles.h"
#include "reporter_fixture.h"
#include "text.h"

namespace zocrashtest {
namespace {

using Interface = ReporterTest;
using Strings = std::vector<std::string>;

constexpr std::uint64_t kBase = 133500000000000000;

std::string MachineGuid() {
    wchar_t value[128] = L"";
    DWORD size = sizeof(value);
    RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid",
                 RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, value, &size);
    std::string text = "ZoProtector_";
    for (const wchar_t unit : std::wstring(value)) {
        if (unit != L'-') text += static_cast<char>(std::towlower(unit));
    }
    return text;
}

// A query without what changes from run to run.
std::string ExpectedQuery(const std::string& appName, const std::string& appVersion, std::uint32_t lcid,
                          const std::string& signature, const std::string& address, const std::string& timestamp) {
    OSVERSIONINFOW os{};
    os.dwOSVersionInfoSize = sizeof(os);
    GetVersionExW(&os);
    return zo::Format(
        "<Crash_protocol>\r\n<AppName>{}</AppName>\r\n<AppVer>{}</AppVer>\r\n<Cmd>1</Cmd>\r\n<Contact>{}</Contact>\r\n"
        "<CrashSignature>{}</CrashSignature>\r\n<ErrAddr>{}</ErrAddr>\r\n<GUID_TeskWarden>{}</GUID_TeskWarden>\r\n"
        "<LCID>{}</LCID>\r\n<ModuleName>ntos</ModuleName>\r\n<OSBuildNo>{}</OSBuildNo>\r\n<OSID>{}</OSID>\r\n"
        "<OSMajVer>{}</OSMajVer>\r\n<OSMinVer>{}</OSMinVer>\r\n<TimeStamp>{}</TimeStamp>\r\n<ToolVer>3.1</ToolVer>\r\n"
        "<UIN>10000</UIN>\r\n</Crash_protocol>\r\n",
        appName, appVersion, ZO_CRASH_CONTACT, signature, address, MachineGuid(), lcid, os.dwBuildNumber,
        os.dwPlatformId, os.dwMajorVersion, os.dwMinorVersion, timestamp);
}

std::string Now() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return zo::Format("{}-{}-{} {}:{}:{}", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
}

TEST_F(Interface, SendsWhatIsConfiguredAndDefaultsForWhatIsNot) {
    struct Case {
        const char* name;
        bool null;
        const wchar_t* appName;
        const wchar_t* appVersion;
        std::uint32_t lcid;
        std::string query[2];
        std::uint32_t queryLcid;
    };
    const Case cases[] = {
        {"null record", true, nullptr, nullptr, 0, {"TeskShield", "100.0.100.1"}, 2502},
        {"zeros", false, nullptr, nullptr, 0, {"TeskShield", "100.0.100.1"}, 2502},
        {"empty strings", false, L"", L"", 0, {"TeskShield", "100.0.100.1"}, 2502},
        {"given", false, L"App <&>", L"2.0", 1033, {"App <&>", "2.0"}, 1033},
        {"in the ANSI code page", false, L"Caf\u00E9\u4E2D", L"\u20AC", 1, {"Caf\xE9?", "\x80"}, 1},
    };
    const std::wstring dump = AddDump("a.dmp", kOurs, kBase).wstring();
    Script("OutputStackTrace fail 0x80004005\n");
    api_.notifyNetworkOk();
    const char* names[] = {"bugcheck code"};
    api_.setTargetDrivers(names, 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ZoCrashReportConfig config{L"", c.appName, c.appVersion, c.lcid, L"", L"", 0, 0, 0};
        api_.initialize(c.null ? nullptr : &config);
        documents_.clear();
        const std::string before = Now();
        EXPECT_EQ(api_.uploadSingleDump(dump.c_str(), &stats_), 0);
        const std::string after = Now();
        ASSERT_EQ(documents_.size(), 1u);
        // The MD5 of "Bugcheck code 1e" and a line feed, by another program.
        const std::string signature = "a83d38223dd8c1365da314f1f15dda87";
        const std::string address = Field(documents_[0], "ErrAddr");
        const std::string timestamp = Field(documents_[0], "TimeStamp");
        EXPECT_TRUE(timestamp == before || timestamp == after) << timestamp;
        EXPECT_EQ(documents_[0], ExpectedQuery(c.query[0], c.query[1], c.queryLcid, signature, address, timestamp));
    }
    // Without a path of its own the record is kept in the user's local data, and the call above has written it.
    wchar_t local[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"LOCALAPPDATA", local, MAX_PATH);
    const std::filesystem::path record = std::filesystem::path(local) / "ZoProtector" / "crash_compare.dat";
    EXPECT_EQ(zotest::ReadFileBytes(record), std::string(reinterpret_cast<const char*>(&kBase), sizeof(kBase)));
    std::filesystem::remove(record);
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
    api_.notifyNetworkOk();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.matched);
        Configure();
        zotest::RemoveTree(record_.wstring());
        api_.setTargetDrivers(c.nullArray ? nullptr : c.names.data(), static_cast<std::uint32_t>(c.names.size()));
        stats_ = {};
        wcscpy(stats_.matchedDrivers, L"before");
        EXPECT_EQ(api_.run(&stats_), 0);
        EXPECT_EQ(TakeLog().back(), "0 Dump ~\\dumps\\a.dmp matched=[" + c.matched + "] upload=true");
        EXPECT_EQ(zo::Utf8FromWide(stats_.matchedDrivers), c.matched.empty() ? "before" : c.matched);
    }
}

TEST_F(Interface, CollectsMatchesOfARunAndAddsToTheCallersCounters) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    Configure();
    api_.notifyNetworkOk();
    stats_ = {10, 20, 30, 40, 50, 60, 70, L"before"};
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Counters(), "13 22 30 40 52 60 70");
    EXPECT_STREQ(stats_.matchedDrivers, L"ZoProtector;ZoProtector");
    EXPECT_EQ(Record(), kBase + 3);

    // Nothing is new now: the record stays as it is, whether there is one to fill or not.
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(api_.run(nullptr), 0);
    EXPECT_EQ(Counters(), "13 22 30 40 52 60 70");

    const std::string longName(700, 'n');
    Script("OutputStackTrace say " + longName + "\n");
    const char* names[] = {longName.c_str()};
    api_.setTargetDrivers(names, 1);
    SetRecord(kBase + 1);
    EXPECT_EQ(api_.run(&stats_), 0);
    const std::wstring expected = std::wstring(700, L'n') + L";" + std::wstring(322, L'n');
    EXPECT_EQ(std::wstring(stats_.matchedDrivers), expected);
}

TEST_F(Interface, ChecksThePathOfASingleDump) {
    api_.notifyNetworkOk();
    struct Case {
        const wchar_t* path;
        std::uint32_t status;
    };
    const std::wstring missing = (dumps_ / "missing.dmp").wstring();
    for (const Case& c : {Case{nullptr, 0x80070057}, Case{L"", 0x80070057}, Case{missing.c_str(), 0x80070002}}) {
        EXPECT_EQ(static_cast<std::uint32_t>(api_.uploadSingleDump(c.path, &stats_)), c.status);
        EXPECT_EQ(Counters(), "0 0 0 0 0 0 0");
    }
    EXPECT_TRUE(TakeLog().empty());
}

// Where a cancel comes, what the run then answers, whether the caller's record is filled and the dedupe record moved.
TEST_F(Interface, StopsAtTheNextCheckAfterACancel) {
    struct Case {
        const char* when;  // the log line at whose delivery another thread cancels; null: a document
        bool gateOpen;
        std::int32_t status;
        const char* counters;
        std::uint64_t record;
        const char* lastLine;
    };
    const Case cases[] = {
        {"before", true, kAborted, "0 0 0 0 0 0 0", 0, ""},
        {"0 Minidump dir", true, kAborted, "0 0 0 0 0 0 0", 0, "0 Found 2 new"},
        {"0 Found", true, kAborted, "0 0 0 0 0 0 0", 0, "0 Found 2 new"},
        {"0 Found", false, kNoNetwork, "2 0 0 0 0 0 0", 0, "1 Network never reported up; aborting"},
        {"0 Dump ~\\dumps\\1.dmp", true, kAborted, "2 1 0 0 1 0 0", kBase + 2, "0 Dump ~\\dumps\\1.dmp"},
        {nullptr, true, kAborted, "2 1 0 0 1 0 0", kBase + 2, "0 Dump ~\\dumps\\1.dmp"},
        {"0 Dump ~\\dumps\\2.dmp", true, kAborted, "2 2 0 0 2 0 0", kBase + 2, "0 Dump ~\\dumps\\2.dmp"},
    };
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    const auto cancel = [this] { std::thread(api_.cancel).join(); };
    for (const bool gateOpen : {false, true}) {
        if (gateOpen) api_.notifyNetworkOk();
        for (const Case& c : cases) {
            if (c.gateOpen != gateOpen) continue;
            SCOPED_TRACE(c.when != nullptr ? c.when : "document");
            zotest::RemoveTree(record_.wstring());
            Configure();
            onLog_ = [&](const std::string& line) {
                if (c.when != nullptr && line.starts_with(c.when)) cancel();
            };
            onDocument_ = [&] {
                if (c.when == nullptr) cancel();
            };
            if (c.when != nullptr && std::string(c.when) == "before") cancel();
            stats_ = {};
            EXPECT_EQ(api_.run(&stats_), c.status);
            EXPECT_EQ(Counters(), c.counters);
            EXPECT_EQ(Record(), c.record);
            const Strings log = TakeLog();
            EXPECT_TRUE(log.empty() ? *c.lastLine == '\0' : log.back().starts_with(c.lastLine));
            // It stays until it is taken back.
            EXPECT_EQ(api_.run(nullptr), kAborted);
            EXPECT_TRUE(TakeLog().empty());
        }
    }
    api_.resetCancel();
    EXPECT_EQ(api_.run(nullptr), 0);
    api_.cancel();
    api_.uninitialize();
    EXPECT_EQ(api_.run(nullptr), 0);
}

TEST_F(Interface, WaitsAtTheGateForTheNetworkTheTimeOrACancel) {
    using Clock = std::chrono::steady_clock;
    const std::wstring dump = AddDump("1.dmp", kOurs, kBase + 1).wstring();
    config_.networkWaitSeconds = 1;
    Configure();
    const auto start = Clock::now();
    EXPECT_EQ(api_.run(&stats_), kNoNetwork);
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(1000));
    EXPECT_LT(waited, std::chrono::milliseconds(3000));
    EXPECT_EQ(Counters(), "1 0 0 0 0 0 0");
    EXPECT_EQ(Record(), 0u);
    EXPECT_EQ(TakeLog().back(), "1 Network never reported up; aborting");
    EXPECT_TRUE(EngineCalls().empty());

    // Both ways out of a wait of 300 s (0 is the default): cancelled, and let through.
    config_.networkWaitSeconds = 0;
    Configure();
    for (const bool open : {false, true}) {
        const auto begin = Clock::now();
        std::thread other([&] {
            Sleep(200);
            open ? api_.notifyNetworkOk() : api_.cancel();
        });
        stats_ = {};
        // A single dump is not refused because of an earlier cancel, only at the gate.
        EXPECT_EQ(api_.uploadSingleDump(dump.c_str(), &stats_), open ? 0 : kNoNetwork);
        other.join();
        EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(190));
        EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(5000));
        EXPECT_EQ(Counters(), open ? "1 1 0 0 1 0 0" : "1 0 0 0 0 0 0");
        if (!open) {
            EXPECT_EQ(api_.uploadSingleDump(dump.c_str(), &stats_), kNoNetwork);
        }
        api_.resetCancel();
    }
    api_.cancel();
    stats_ = {};
    EXPECT_EQ(api_.uploadSingleDump(dump.c_str(), &stats_), kAborted);
    EXPECT_EQ(Counters(), "0 0 0 0 0 0 0");
}

TEST_F(Interface, WorksSilentlyWithoutALogger) {
    AddDump("1.dmp", kOurs, kBase + 1);
    Configure();
    api_.setLogger(nullptr, this);
    api_.notifyNetworkOk();
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");
    EXPECT_TRUE(TakeLog().empty());
}

}  // namespace
}  // namespace zocrashtest
