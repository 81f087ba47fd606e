#include <windows.h>

#include "zoctl_process.h"

// The driver's service as zoctl installs and removes it, and the doctor on broken set-ups of it.

namespace {

using zotest::Json;
using zotest::RunZoctl;
using zotest::ZoctlRun;

constexpr wchar_t kInstanceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector\\Instances\\ZoProtector Instance";

std::string DriverFile(const char* name = "ZoProtectorDriver.sys") {
    return zo::Utf8FromWide((zotest::ProgramFolder() / name).wstring());
}

class ZoctlDriver : public testing::Test {
  protected:
    void SetUp() override { zotest::RemoveDriverService(); }
    void TearDown() override { zotest::RemoveDriverService(); }
};

TEST_F(ZoctlDriver, InstallsStartsShowsStopsAndRemoves) {
    EXPECT_EQ(RunZoctl({"driver", "status", "--json"}).json["state"], "not installed");
    EXPECT_EQ(RunZoctl({"driver", "start"}).exitCode, 3);
    const Json none = RunZoctl({"driver", "install", "C:\\none.sys", "--json"}).json;
    EXPECT_EQ(none["exitCode"], 3);
    EXPECT_EQ(none["advice"], "Check the path of the driver's file.");
    ASSERT_EQ(RunZoctl({"driver", "install", DriverFile(), "--start", "auto", "--altitude", "4711.5"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"status"}).exitCode, 3);  // no device yet
    EXPECT_EQ(RunZoctl({"driver", "set-start", "demand"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"driver", "start"}).exitCode, 0);
    const Json status = RunZoctl({"driver", "status", "--json"}).json;
    EXPECT_EQ(status["state"], "running");
    EXPECT_EQ(status["startType"], "demand");
    EXPECT_EQ(status["altitude"], "4711.5");
    EXPECT_NE(status["fileVersion"], "none");
    EXPECT_EQ(RunZoctl({"driver", "upgrade", DriverFile(), "--json"}).json["upgraded"], false);
    EXPECT_EQ(RunZoctl({"driver", "upgrade", "C:\\none.sys"}).exitCode, 3);
    const ZoctlRun unversioned = RunZoctl({"driver", "upgrade", DriverFile("ZoProtectorDriver_noversion.sys")});
    EXPECT_EQ(unversioned.exitCode, 1);
    EXPECT_NE(unversioned.err.find("carries no version"), std::string::npos) << unversioned.err;
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(RunZoctl({"driver", "self-protect"}).exitCode, 0);
    const zotest::SimulatorClient simulator;
    EXPECT_EQ(simulator.State().fileProtectEnabled, 1u);
    EXPECT_EQ(simulator.State().tableCount[ZOSIM_TABLE_REGISTRY], 1u);
    EXPECT_EQ(RunZoctl({"driver", "stop"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"driver", "uninstall"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"driver", "status", "--json"}).json["state"], "not installed");
    EXPECT_EQ(GetFileAttributesW(zotest::InstalledDriverPath().c_str()), INVALID_FILE_ATTRIBUTES);
}

void SetAltitude(const wchar_t* text) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey, L"Altitude", REG_SZ, text,
                    static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
}

void MarkForDeletion() {
    const DWORD flag = 1;
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector", L"DeleteFlag", REG_DWORD,
                    &flag, sizeof(flag));
}

// Each set-up is a healthy one with one thing broken; the options are for the doctor's process.
struct BrokenSetUp {
    const char* name;
    const char* line;                              // one run of zoctl that breaks it
    void (*spoil)(zotest::ChildOptions& options);  // or this
    const char* subject;
    const char* words;
};

const BrokenSetUp kBroken[] = {
    {"not installed", "driver uninstall", nullptr, "service", "not installed"},
    {"stopped", "driver stop", nullptr, "service", "stopped"},
    {"disabled", "driver set-start disabled", nullptr, "start type", "disabled"},
    {"file gone", "",
     [](auto&) {
         const std::wstring file = zotest::InstalledDriverPath();
         if (!DeleteFileW(file.c_str()))
             MoveFileExW(file.c_str(), (file + L".gone").c_str(), MOVEFILE_REPLACE_EXISTING);
         DeleteFileW((file + L".gone").c_str());
     },
     "driver file", "does not exist"},
    {"file without a version", "",
     [](auto&) {
         const std::wstring file = zotest::InstalledDriverPath();
         MoveFileExW(file.c_str(), (file + L".old").c_str(), MOVEFILE_REPLACE_EXISTING);
         zotest::WriteFileBytes(file, "no driver");
     },
     "file version", "no version"},
    {"altitude gone", "", [](auto&) { RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey, L"Altitude"); },
     "filter instance", "not registered"},
    {"altitude no number", "", [](auto&) { SetAltitude(L"high"); }, "filter instance", "no number"},
    {"marked for deletion", "", [](auto&) { MarkForDeletion(); }, "deletion", "marked"},
    {"other version runs", "", [](auto&) { zotest::SimulatorClient().SetVersion(1, 99, 0); }, "file version",
     "1.99.0 is running"},
    {"driver of another age", "", [](auto&) { zotest::SimulatorClient().SetVersion(2, 0, 0); }, "handshake",
     "ZOP_E_VERSION_MISMATCH"},
    {"protection off", "disable", nullptr, "protection", "off"},
    {"tables unreadable", "",
     [](auto&) { zotest::SimulatorClient().FailNext(ZOP_IOCTL_LIST_FILE_RULES, 0xC0000001, 9); }, "rules",
     "cannot be read"},
    {"log not writable", "",
     [](auto& options) {
         options.environment = {{L"TMP", zotest::InstalledDriverPath()}};
     },
     "diagnostic log", "cannot be written"},
};

TEST_F(ZoctlDriver, DoctorFindsWhatIsBrokenAndNothingElse) {
    for (const BrokenSetUp& one : kBroken) {
        zotest::RemoveDriverService();
        ASSERT_EQ(RunZoctl({"driver", "install", DriverFile()}).exitCode, 0) << one.name;
        ASSERT_EQ(RunZoctl({"driver", "start"}).exitCode, 0) << one.name;
        if (&one == &kBroken[0]) {
            const ZoctlRun healthy = RunZoctl({"doctor", "--json"});
            ASSERT_EQ(healthy.exitCode, 0) << healthy.out;
        }
        zotest::ChildOptions options;
        if (one.spoil) one.spoil(options);
        if (*one.line) RunZoctl(zotest::Words(one.line));
        const ZoctlRun run = RunZoctl({"doctor", "--json"}, options);
        EXPECT_EQ(run.exitCode, 40) << one.name << "\n" << run.out << run.err;
        ASSERT_TRUE(run.json.is_object()) << one.name;
        int wrong = 0;
        for (const Json& finding : run.json["findings"]) {
            if (finding["severity"] != "wrong") continue;
            ++wrong;
            EXPECT_EQ(finding["subject"], one.subject) << one.name << "\n" << run.out;
            EXPECT_NE(finding["finding"].get<std::string>().find(one.words), std::string::npos) << finding;
            EXPECT_GT(finding["remedy"].get<std::string>().size(), 10u);
        }
        EXPECT_EQ(wrong, 1) << one.name;
    }
    const std::wstring old = zotest::InstalledDriverPath() + L".old";
    DeleteFileW(old.c_str());
}

TEST_F(ZoctlDriver, UpgradesTheRunningDriverAndTheDoctorSaysThatTheOldOneStillRuns) {
    const zotest::TempFolder folder;  // where the old file is moved to
    zotest::ChildOptions options;
    options.environment = {{L"TMP", folder.Path().wstring()}};
    ASSERT_EQ(RunZoctl({"driver", "install", DriverFile()}).exitCode, 0);
    ASSERT_EQ(RunZoctl({"driver", "start"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"driver", "upgrade", DriverFile("ZoProtectorDriver_0_9_9.sys"), "--json"}).json["upgraded"],
              false);
    const ZoctlRun upgrade =
        RunZoctl({"driver", "upgrade", DriverFile("ZoProtectorDriver_1_0_1.sys"), "--json"}, options);
    EXPECT_EQ(upgrade.exitCode, 0) << upgrade.err;
    EXPECT_EQ(upgrade.json["upgraded"], true);
    EXPECT_EQ(RunZoctl({"driver", "status", "--json"}).json["fileVersion"], "1.0.1.0");
    const ZoctlRun doctor = RunZoctl({"doctor"});
    EXPECT_EQ(doctor.exitCode, 40);
    EXPECT_NE(doctor.out.find("1.0.0 is running"), std::string::npos) << doctor.out;
    EXPECT_EQ(RunZoctl({"driver", "stop"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"driver", "start"}).exitCode, 0);
    EXPECT_EQ(RunZoctl({"doctor"}).exitCode, 0);
    zotest::RemoveDriverService();
}

TEST_F(ZoctlDriver, DoctorFitsAScreenAndNotesLossesWithoutAlarm) {
    ASSERT_EQ(RunZoctl({"driver", "install", DriverFile()}).exitCode, 0);
    ASSERT_EQ(RunZoctl({"driver", "start"}).exitCode, 0);
    zotest::SimulatorClient().InjectEvents(ZOSIM_RING_REGISTRY, ZOP_REGISTRY_EVENT_RING_SIZE + 7);
    const Json measured = RunZoctl({"doctor", "--json"}).json["measured"];
    EXPECT_EQ(measured["lost"]["registry"], 7);
    EXPECT_EQ(measured["driverVersion"], (Json{1, 0, 0}));
    EXPECT_EQ(measured["rules"]["process"], 0);
    const ZoctlRun run = RunZoctl({"doctor"});
    EXPECT_EQ(run.exitCode, 0) << run.out;
    EXPECT_NE(run.out.find("7 of the registry ring"), std::string::npos) << run.out;
    EXPECT_LT(std::count(run.out.begin(), run.out.end(), '\n'), 25) << run.out;
}

}  // namespace
