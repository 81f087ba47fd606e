// Settings, target names, cancellation and the network gate, seen from outside: what stands in the documents, what is
// logged, what comes back.

#include <windows.h>

#include <objbase.h>

#include <thread>

#include "import_hook.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

using Interface = ReporterTest;

// The machine's identifier as reports have it: in lower case and without hyphens, as Wine makes them.
std::string MachineGuid() {
    char value[128] = "";
    DWORD size = sizeof(value);
    RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Cryptography", "MachineGuid",
                 RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, value, &size);
    std::string text = value;
    std::erase(text, '-');
    CharLowerA(text.data());
    return "ZoProtector_" + text;
}

void WINAPI FixedLocalTime(SYSTEMTIME* now) {
    *now = {2026, 1, 0, 2, 3, 4, 5, 0};  // the third is the day of the week
}

// The user's own dedupe record stays untouched.
std::wstring localData;

HRESULT WINAPI OwnLocalData(const GUID& folder, DWORD, HANDLE, wchar_t** path) {
    EXPECT_EQ(folder.Data1, 0xF1B32785u) << "FOLDERID_LocalAppData";
    *path = static_cast<wchar_t*>(CoTaskMemAlloc((localData.size() + 1) * sizeof(wchar_t)));
    wcscpy(*path, localData.c_str());
    return S_OK;
}

TEST_F(Interface, SendsWhatIsConfiguredAndDefaultsForWhatIsNot) {
    const struct {
        bool nullRecord;
        const wchar_t* appName;
        const wchar_t* appVersion;
        std::uint32_t lcid;
        const char* sentName;
        const char* sentVersion;
        std::uint32_t sentLcid;
    } cases[] = {
        {true, nullptr, nullptr, 0, "TeskShield", "100.0.100.1", 2502},
        {false, nullptr, L"", 0, "TeskShield", "100.0.100.1", 2502},
        {false, L"App <&>", L"2.0", 1033, "App <&>", "2.0", 1033},
        {false, L"Caf\u00E9\u4E2D", L"\u20AC", 1, "Caf\xE9?", "\x80", 1},  // in the ANSI code page
    };
    constexpr char kSignature[] = "a83d38223dd8c1365da314f1f15dda87";  // MD5 of "Bugcheck code 1e\n"
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    Script("OutputStackTrace fail 0x80004005\n");
    api_.networkOk();
    const char* names[] = {"bugcheck code"};
    api_.setTargets(names, 1);
    OSVERSIONINFOW os{};
    os.dwOSVersionInfoSize = sizeof(os);
    // By name, because the platform's header declares it deprecated.
    const FARPROC getVersion = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetVersionExW");
    ASSERT_TRUE(reinterpret_cast<BOOL(WINAPI*)(OSVERSIONINFOW*)>(reinterpret_cast<void*>(getVersion))(&os));
    localData = (folder_ / "local data").wstring();
    const zotest::ImportHook time("GetLocalTime", FixedLocalTime);
    const zotest::ImportHook local("SHGetKnownFolderPath", OwnLocalData);
    for (const auto& c : cases) {
        const ZoCrashReportConfig config{L"", c.appName, c.appVersion, c.lcid, nullptr, L"", 0, 0, 0};
        api_.initialize(c.nullRecord ? nullptr : &config);
        EXPECT_EQ(Upload(dump), "0: 1 1 0 0 1 0 0");
        const std::string expected = zo::Format(
            "<Crash_protocol>\r\n<AppName>{}</AppName>\r\n<AppVer>{}</AppVer>\r\n<Cmd>1</Cmd>\r\n"
            "<Contact>{}</Contact>\r\n<CrashSignature>{}</CrashSignature>\r\n<ErrAddr>{}</ErrAddr>\r\n"
            "<GUID_TeskWarden>{}</GUID_TeskWarden>\r\n<LCID>{}</LCID>\r\n<ModuleName>ntos</ModuleName>\r\n"
            "<OSBuildNo>{}</OSBuildNo>\r\n<OSID>{}</OSID>\r\n<OSMajVer>{}</OSMajVer>\r\n<OSMinVer>{}</OSMinVer>\r\n"
            "<TimeStamp>2026-1-2 "
            "3:4:5</TimeStamp>\r\n<ToolVer>3.1</ToolVer>\r\n<UIN>10000</UIN>\r\n</Crash_protocol>\r\n",
            c.sentName, c.sentVersion, ZO_CRASH_CONTACT, kSignature, "0xFFFFF80604001A2B", MachineGuid(), c.sentLcid,
            os.dwBuildNumber, os.dwPlatformId, os.dwMajorVersion, os.dwMinorVersion);
        EXPECT_EQ(documents_.back(), expected);
    }
    // Without a path of its own the record is kept in the user's local data, and the call above has written it.
    record_ = std::filesystem::path(localData) / "ZoProtector" / "crash_compare.dat";
    EXPECT_EQ(Record(), kBase);
}

TEST_F(Interface, MatchesTargetNamesInListOrderRegardlessOfCase) {
    const std::pair<std::vector<const char*>, std::string> cases[] = {
        {{nullptr, "", "storage"}, ""},
        {{nullptr, "", "PROTECTOR+0X"}, "PROTECTOR+0X"},
        {{"nt+", "zoprotector", "bugcheck CODE 1E", "nt+"}, "nt+|zoprotector|bugcheck CODE 1E|nt+"},
        {{}, "ZoProtector"},  // the built-in names
        {{nullptr, ""}, "ZoProtector"},
    };
    AddDump("a.dmp", kOurs, kBase);
    config_.uploadAll = 1;
    api_.networkOk();
    for (const auto& [names, matched] : cases) {
        api_.setTargets(names.data(), static_cast<std::uint32_t>(names.size()));  // of none, a null pointer
        EXPECT_EQ(RunAnew(), "0: 1 1 0 0 1 0 0");
        EXPECT_EQ(TakeLog().back(), "0 Dump ~\\dumps\\a.dmp matched=[" + matched + "] upload=true");
        EXPECT_EQ(zo::Utf8FromWide(stats_.matchedDrivers), matched);
    }
}

TEST_F(Interface, CollectsMatchesOfARunAndAddsToTheCallersCounters) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kForeign, kBase + 2);
    AddDump("3.dmp", kOurs2, kBase + 3);
    Configure();
    api_.networkOk();
    stats_ = {10, 20, 30, 40, 50, 60, 70, L"before"};
    EXPECT_EQ(Outcome(api_.run(&stats_)), "0: 13 22 30 40 52 60 70");
    EXPECT_STREQ(stats_.matchedDrivers, L"ZoProtector;ZoProtector");

    // What matched nothing leaves the text; without a logger and a record to fill there is silence.
    const auto runWith = [this](const char* name, ZoCrashRunStats* stats) {
        api_.setTargets(&name, 1);
        SetRecord(kBase + 1);
        const std::int32_t status = api_.run(stats);
        EXPECT_EQ(Record(), kBase + 3);
        return status;
    };
    EXPECT_EQ(Outcome(runWith("no such driver", &stats_)), "0: 15 22 30 40 52 60 70");
    EXPECT_STREQ(stats_.matchedDrivers, L"ZoProtector;ZoProtector");
    TakeLog();
    api_.setLogger(nullptr, this);
    EXPECT_EQ(runWith("ZoProtector", nullptr), 0);
    EXPECT_TRUE(TakeLog().empty());

    const std::string longName(700, 'n');
    Script("OutputStackTrace say " + longName + "\n");
    EXPECT_EQ(runWith(longName.c_str(), &stats_), 0);
    EXPECT_EQ(std::wstring(stats_.matchedDrivers), std::wstring(700, L'n') + L";" + std::wstring(322, L'n'));
}

// Where a cancel comes, what the run then answers, whether the caller's record is filled and the dedupe record moved.
TEST_F(Interface, StopsAtTheNextCheckAfterACancel) {
    constexpr char kNothing[] = "80004004: 0 0 0 0 0 0 0";
    const struct {
        const char* when;  // the event at which another thread cancels
        const char* outcome;
        std::uint64_t record;
        const char* lastLine;
    } cases[] = {
        {"before", kNothing, 0, ""},
        {"0 Found", kNothing, 0, "0 Found 2 new"},
        {"document", "80004004: 2 1 0 0 1 0 0", kBase + 2, "0 Dump ~\\dumps\\1.dmp"},
        {"0 Dump ~\\dumps\\2.dmp", "80004004: 2 2 0 0 2 0 0", kBase + 2, "0 Dump ~\\dumps\\2.dmp"},
    };
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs, kBase + 2);
    api_.networkOk();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.when);
        RemoveRecord();
        Configure();
        onEvent_ = [&](const std::string& event) {
            if (event.starts_with(c.when)) std::thread(api_.cancel).join();
        };
        onEvent_("before");
        EXPECT_EQ(Run(), c.outcome);
        EXPECT_EQ(Record(), c.record);
        const Strings log = TakeLog();
        EXPECT_TRUE(log.empty() ? *c.lastLine == '\0' : log.back().starts_with(c.lastLine));
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

// The gate's wait: how long it was to be at most, whether something ended it, and what another thread does meanwhile.
DWORD waitMs;
bool woken;
std::int32_t (*meanwhile)();
std::thread otherThread;

BOOL WINAPI WatchedWait(PCONDITION_VARIABLE variable, PCRITICAL_SECTION section, DWORD milliseconds) {
    if (!otherThread.joinable()) {
        waitMs = milliseconds;
        otherThread = std::thread(meanwhile);  // which gets the lock once this thread is asleep
    }
    return woken = SleepConditionVariableCS(variable, section, milliseconds);
}

TEST_F(Interface, WaitsAtTheGateForTheTimeACancelOrTheNetwork) {
    constexpr char kNoNetwork[] = "80070102: 1 0 0 0 0 0 0";
    const struct {
        std::uint32_t seconds;  // 0: the default of 300
        DWORD longestMs;
        std::int32_t (*meanwhile)();
        bool woken;
        const char* outcome;
    } cases[] = {
        {1, 1000, api_.resetCancel, false, kNoNetwork},
        {0, 300000, api_.cancel, true, kNoNetwork},
        {0, 300000, api_.networkOk, true, "0: 1 1 0 0 1 0 0"},
    };
    const zotest::ImportHook wait("SleepConditionVariableCS", WatchedWait);
    const std::filesystem::path dump = AddDump("1.dmp", kOurs, kBase + 1);
    for (const auto& c : cases) {
        config_.networkWaitSeconds = c.seconds;
        Configure();
        meanwhile = c.meanwhile;
        EXPECT_EQ(Upload(dump), c.outcome);
        std::exchange(otherThread, {}).join();
        EXPECT_TRUE(waitMs > c.longestMs - 1000 && waitMs <= c.longestMs) << waitMs;
        EXPECT_EQ(woken, c.woken);
        if (c.outcome != kNoNetwork) continue;
        EXPECT_EQ(TakeLog(), Strings{"1 Network never reported up; aborting"});
        EXPECT_FALSE(std::filesystem::exists(folder_ / "engine.log"));
        EXPECT_EQ(Record(), 0u);
    }
    // A single dump is not refused because of an earlier cancel, only at the gate, which comes after its path.
    api_.cancel();
    EXPECT_EQ(Upload(dump), "80004004: 0 0 0 0 0 0 0");
    EXPECT_EQ(Upload(dumps_ / "missing.dmp"), "80070002: 0 0 0 0 0 0 0");
    EXPECT_EQ(Upload(""), "80070057: 0 0 0 0 0 0 0");
    EXPECT_EQ(Outcome(api_.upload(nullptr, nullptr)), "80070057: 0 0 0 0 0 0 0");
}

}  // namespace
}  // namespace zocrashtest
