// Settings, target names, cancellation and the network gate, seen from outside: what the documents hold, what is logged
// and what comes back.

#include <windows.h>

#include <shlobj.h>
#include <shlwapi.h>

#include <thread>

#include "reporter_fixture.h"

namespace zotest {
namespace {

// The query of a crash of bug check 0x1E without a stack, all settings at their defaults.
std::string DefaultQuery() {
    OSVERSIONINFOW os{};
    os.dwOSVersionInfoSize = sizeof(os);
    // By name, because the platform's header declares it deprecated.
    const FARPROC getVersion = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetVersionExW");
    EXPECT_TRUE(reinterpret_cast<BOOL(WINAPI*)(OSVERSIONINFOW*)>(reinterpret_cast<void*>(getVersion))(&os));
    constexpr char kSignature[] = "a83d38223dd8c1365da314f1f15dda87";  // MD5 of "Bugcheck code 1e\n"
    return zo::Format(
        "<Crash_protocol>\r\n<AppName>TeskShield</AppName>\r\n<AppVer>100.0.100.1</AppVer>\r\n<Cmd>1</Cmd>\r\n"
        "<Contact>{}</Contact>\r\n<CrashSignature>{}</CrashSignature>\r\n<ErrAddr>0xFFFFF80604001A2B</ErrAddr>\r\n"
        "<GUID_TeskWarden>{}</GUID_TeskWarden>\r\n<LCID>2502</LCID>\r\n<ModuleName>ntos</ModuleName>\r\n"
        "<OSBuildNo>{}</OSBuildNo>\r\n<OSID>{}</OSID>\r\n<OSMajVer>{}</OSMajVer>\r\n<OSMinVer>{}</OSMinVer>\r\n"
        "<TimeStamp>2026-1-2 3:4:5</TimeStamp>\r\n<ToolVer>3.1</ToolVer>\r\n<UIN>10000</UIN>\r\n</Crash_protocol>\r\n",
        ZO_CRASH_CONTACT, kSignature, "ZoProtector_abc" + std::string(29, '0'), os.dwBuildNumber, os.dwPlatformId,
        os.dwMajorVersion, os.dwMinorVersion);
}

class Settings : public ReporterTest {
  protected:
    Settings() {
        Script("OutputStackTrace fail 0x80004005\n");
        SetTarget("bugcheck code");
    }

    std::filesystem::path dump_ = AddDump("a.dmp", kOurs, kBase);

  private:
    // In the place of the user's own folder, whose record is not touched.
    ImportHook folderHook_{
        "SHGetKnownFolderPath", SHGetKnownFolderPath, [this](REFGUID id, DWORD, HANDLE, wchar_t** path) {
            return id == FOLDERID_LocalAppData ? SHStrDupW(folder_.Path().c_str(), path) : E_INVALIDARG;
        }};
    // A machine's name that is too short; the hyphens and capital letters go.
    ImportHook guidHook_{"RegQueryValueExW", RegQueryValueExW,
                         [](HKEY key, const wchar_t* name, auto reserved, auto type, BYTE* data, auto size) {
                             const LSTATUS error = RegQueryValueExW(key, name, reserved, type, data, size);
                             if (!std::wcscmp(name, L"MachineGuid")) std::memcpy(data, L"A-bC", 5 * sizeof(wchar_t));
                             return error;
                         }};
    ImportHook timeHook_{"GetLocalTime", GetLocalTime, [](SYSTEMTIME* time) {
                             *time = {2026, 1, 5, 2, 3, 4, 5, 6};  // a Friday
                         }};
};

TEST_F(Settings, AreSentAndDefaultsForEmptyOnes) {
    const Rows<const wchar_t*, const wchar_t*, std::uint32_t, Strings> rows = {
        {"empty", L"", L"", 0, {"TeskShield", "100.0.100.1", "2502"}},
        {"all", L"App <&>", L"2.0", 1033, {"App <&>", "2.0", "1033"}},
        {"beyond the ANSI code page", L"Caf\u00E9\u4E2D", L"\u20AC", 1, {"Caf\xE9?", "\x80", "1"}},
    };
    for (const auto& [name, appName, appVersion, lcid, sent] : rows) {
        SCOPED_TRACE(name);
        config_.appName = appName;
        config_.appVersion = appVersion;
        config_.lcid = lcid;
        Configure();
        EXPECT_EQ(Upload(dump_), kQueryFailed);
        const std::string& document = documents_.back();
        EXPECT_EQ((Strings{Field(document, "AppName"), Field(document, "AppVer"), Field(document, "LCID")}), sent);
    }
}

TEST_F(Settings, GoBackToTheDefaultsWithANullRecord) {
    config_.appName = L"App";
    config_.appVersion = L"1";
    config_.lcid = 1;
    Configure();
    api_.initialize(nullptr);
    EXPECT_EQ(Upload(dump_), kQueryFailed);
    EXPECT_EQ(documents_.back(), DefaultQuery());
    record_ = folder_ / "ZoProtector" / "crash_compare.dat";
    EXPECT_EQ(Record(), kBase);
}

using Targets = ReporterTest;

TEST_F(Targets, AreMatchedInListOrderRegardlessOfCase) {
    const Rows<std::vector<const char*>, std::string> rows = {
        {"none matches", {nullptr, "", "storage"}, ""},
        {"null and empty names are left out", {nullptr, "", "PROTECTOR+0X"}, "PROTECTOR+0X"},
        {"a name given twice counts twice",
         {"n", "zoprotector", "bugcheck CODE 1E", "n"},
         "n|zoprotector|bugcheck CODE 1E|n"},
        {"no names", {}, "ZoProtector"},
        {"no usable names", {nullptr, ""}, "ZoProtector"},
    };
    AddDump("a.dmp", kOurs, kBase);
    config_.uploadAll = 1;
    for (auto [name, targets, matched] : rows) {
        SCOPED_TRACE(name);
        const auto count = static_cast<std::uint32_t>(targets.size());
        targets.push_back("nt+");  // behind those that count
        api_.setTargets(count != 0 ? targets.data() : nullptr, count);
        EXPECT_EQ(RunAnew(), kQueryFailed);
        EXPECT_EQ(TakeLog().back(), "0 Dump ~\\dumps\\a.dmp matched=[" + matched + "] upload=true");
        EXPECT_EQ(zo::Utf8FromWide(stats_.matchedDrivers), matched);
    }
}

class Stats : public ReporterTest {
  protected:
    Stats() {
        AddDumps({kOurs, kForeign, kOurs2});
        Configure();
    }
};

TEST_F(Stats, AreAddedToWhatTheCallerGave) {
    stats_ = {10, 20, 30, 40, 50, 60, 70, L"what was there before"};
    Outcome sum = MakeOutcome(0);
    sum.found += 3;
    sum.selected += 2;
    sum.queriesFailed += 2;
    EXPECT_EQ(MakeOutcome(api_.run(&stats_)), sum);
}

TEST_F(Stats, ShowTheMatchesThatFit) {
    const std::string longName(700, 'n');
    Script("OutputStackTrace say " + longName + "\n");
    const Rows<std::string, std::wstring> rows = {
        {"none", "no such driver", L"what was there before"},
        {"one for each dump", "nnnn", L"nnnn;nnnn;nnnn"},
        {"more than fit", longName, std::wstring(700, L'n') + L";" + std::wstring(322, L'n')},
    };
    for (const auto& [name, target, matched] : rows) {
        std::wcscpy(stats_.matchedDrivers, L"what was there before");
        SetRecord(0);
        SetTarget(target.c_str());
        EXPECT_EQ(api_.run(&stats_), 0);
        EXPECT_EQ(stats_.matchedDrivers, matched) << name;
    }
}

TEST_F(Stats, ShowTheDumpsFoundWithoutAnInternetSession) {
    const ImportHook hook("InternetOpenA", FailWith<ERROR_NOT_ENOUGH_MEMORY>);
    EXPECT_EQ(Run(), (Outcome{.status = 0x80070008, .found = 3}));
    EXPECT_EQ(TakeLog().back(), "2 Protocol init failed: 0x80070008");
    EXPECT_EQ(Record(), 0u);
}

TEST_F(Stats, MayBeMissingAndSoMayTheLogger) {
    api_.setLogger(nullptr, this);
    EXPECT_EQ(api_.run(nullptr), 0);
    EXPECT_EQ(Record(), kBase + 3);
    EXPECT_EQ(TakeLog(), Strings());
}

class Cancel : public ReporterTest {
  protected:
    Cancel() { AddDumps({kOurs, kOurs}); }
    static constexpr Outcome kNothing{.status = 0x80004004};
};

TEST_F(Cancel, StopsTheRunAtItsNextCheck) {
    // Named by the event at which another thread cancels; with the dumps found and selected, whose queries failed.
    const Rows<std::uint32_t, std::uint32_t, std::uint64_t, const char*> rows = {
        {"before", 0, 0, 0, ""},
        {"0 Found", 0, 0, 0, "0 Found 2 new"},
        {"document", 2, 1, kBase + 2, "0 Dump ~\\dumps\\1.dmp"},
        {"0 Dump ~\\dumps\\2.dmp", 2, 2, kBase + 2, "0 Dump ~\\dumps\\2.dmp"},
    };
    for (const auto& [when, found, selected, record, lastLine] : rows) {
        SCOPED_TRACE(when);
        RemoveRecord();
        Configure();
        onEvent_ = [this, at = when](const std::string& event) {
            if (event.starts_with(at)) std::thread(api_.cancel).join();
        };
        onEvent_("before");
        EXPECT_EQ(Run(),
                  (Outcome{.status = 0x80004004, .found = found, .selected = selected, .queriesFailed = selected}));
        EXPECT_EQ(Record(), record);
        const Strings log = TakeLog();
        EXPECT_TRUE(log.empty() ? *lastLine == '\0' : log.back().starts_with(lastLine));
    }
}

TEST_F(Cancel, StaysUntilItIsTakenBack) {
    Configure();
    const Rows<std::int32_t (*)()> ways = {
        {"ResetCancel", api_.resetCancel}, {"Uninitialize", api_.uninitialize}, {"Initialize", nullptr}};
    for (const auto& [name, takeBack] : ways) {
        SCOPED_TRACE(name);
        api_.cancel();
        EXPECT_EQ(Run(), kNothing);
        EXPECT_EQ(Run(), kNothing);
        EXPECT_EQ(TakeLog(), Strings());
        EXPECT_EQ(takeBack != nullptr ? takeBack() : api_.initialize(&config_), 0);
        EXPECT_EQ(Run().status, 0u);
        TakeLog();
    }
}

TEST_F(Cancel, DoesNotRefuseASingleDumpBeforeTheGate) {
    Configure();
    api_.cancel();
    EXPECT_EQ(Upload(dumps_ / "1.dmp"), kNothing);
    EXPECT_EQ(Upload(dumps_ / "missing" / "1.dmp").status, 0x80070002);
    for (const wchar_t* path : {static_cast<const wchar_t*>(nullptr), L"\0x"})
        EXPECT_EQ(zo::Bits(api_.upload(path, nullptr)), 0x80070057);
}

class Gate : public ReporterTest {
  protected:
    Gate() { networkIsUp_ = false; }

    std::vector<DWORD> waits_;
    std::int32_t (*meanwhile_)() = nullptr;

  private:
    // Notes each wait at the gate, has another thread do what the test asks for, and waits five seconds at most.
    BOOL Wait(PCONDITION_VARIABLE variable, PCRITICAL_SECTION section, DWORD milliseconds) {
        waits_.push_back(milliseconds);
        std::thread other(meanwhile_);  // needs the section, which is free during the wait
        const BOOL woken = SleepConditionVariableCS(variable, section, std::min(milliseconds, DWORD{5000}));
        const DWORD error = GetLastError();
        LeaveCriticalSection(section);
        other.join();
        EnterCriticalSection(section);
        if (!woken && milliseconds > 5000) ADD_FAILURE() << "nobody woke the run";
        SetLastError(error);
        return woken;
    }
    ImportHook hook_{"SleepConditionVariableCS", SleepConditionVariableCS,
                     [this](auto... parameters) { return Wait(parameters...); }};
};

TEST_F(Gate, EndsAWaitForTheTimeACancelOrTheNetwork) {
    constexpr Outcome kNoNetwork{.status = 0x80070102, .found = 1};
    const Rows<std::uint32_t, std::int32_t (*)(), DWORD, Outcome> rows = {
        {"time over", 1, api_.resetCancel, 1000, kNoNetwork},
        {"cancelled in the default time", 0, api_.cancel, 300'000, kNoNetwork},
        {"cancelled in the longest time", ~0u, api_.cancel, 86'400'000, kNoNetwork},
        {"network up", 300, api_.networkOk, 300'000, kQueryFailed},
    };
    const std::filesystem::path dump = AddDump("1.dmp", kOurs, kBase + 1);
    for (const auto& [name, seconds, act, wait, outcome] : rows) {
        SCOPED_TRACE(name);
        config_.networkWaitSeconds = seconds;
        Configure();
        waits_.clear();
        meanwhile_ = act;
        EXPECT_EQ(Upload(dump), outcome);
        // Some of the time may have passed before the wait began.
        EXPECT_TRUE(waits_.at(0) > wait - 1000 && waits_.at(0) <= wait) << waits_.at(0);
        if (!(outcome == kNoNetwork)) continue;
        EXPECT_EQ(TakeLog(), Strings{"1 Network never reported up; aborting"});
        EXPECT_FALSE(std::filesystem::exists(folder_ / "engine.log"));
        EXPECT_EQ(Record(), 0u);
    }
}

}  // namespace
}  // namespace zotest
