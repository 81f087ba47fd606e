#include <windows.h>

#include "folder_link.h"
#include "owned_handles.h"
#include "zoctl_process.h"

// The driver's service as zoctl installs and removes it, and the doctor on broken set-ups of it.

namespace {

using namespace zotest;

const std::wstring kKey = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector";
const std::wstring kFile = InstalledDriverPath();
const std::wstring kAway = kFile + L".away";

class ZoctlDriver : public ZoctlServiceTest {};

TEST_F(ZoctlDriver, StatusFollowsTheServiceFromInstallToUninstall) {
    EXPECT_TRUE(Gave(Zoctl("driver install C:\\none.sys"), 3, "Check the path of the driver's file."));
    ASSERT_EQ(RunZoctl({"driver", "install", File(), "--start", "auto"}).exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "stopped"}, {"startType", "auto"}}));
    EXPECT_EQ(Zoctl("driver set-start demand").exitCode, 0);
    EXPECT_EQ(Zoctl("driver start").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "running"}, {"startType", "demand"}}));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Zoctl("driver self-protect").exitCode, 0);
    EXPECT_EQ(SimulatorClient().State().fileProtectEnabled, 1u);
    EXPECT_EQ(SimulatorClient().State().tableCount[ZOSIM_TABLE_REGISTRY], 1u);
    EXPECT_EQ(Zoctl("driver stop").exitCode, 0);
    EXPECT_EQ(Zoctl("driver uninstall").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "not installed"}, {"fileVersion", nullptr}}));
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

TEST_F(ZoctlDriver, DoctorReportsLostEventsWithoutAlarm) {
    InstallAndStart();
    EXPECT_TRUE(Gave(Zoctl("registry add HKLM\\X"), 0));
    SimulatorClient().InjectEvents(ZOSIM_RING_REGISTRY, ZOP_REGISTRY_EVENT_RING_SIZE + 7);
    const Json measured = Zoctl("doctor --json").json["measured"];
    EXPECT_EQ(measured["lost"]["registry"], 7);
    EXPECT_EQ(measured["driverVersion"], "1.0.0");
    EXPECT_EQ(measured["rules"]["registry"], 1);
    const ZoctlRun doctor = Zoctl("doctor");
    EXPECT_TRUE(Gave(doctor, 0, "7 of the registry ring"));
    EXPECT_LT(std::count(doctor.out.begin(), doctor.out.end(), '\n'), 30) << "must fit a screen\n" << doctor.out;
}

std::map<std::string, Json> FindingsOf(const Json& answer) {
    std::map<std::string, Json> findings;
    for (const Json& one : answer["findings"])
        findings[one["subject"]] = one;
    return findings;
}

TEST_F(ZoctlDriver, DoctorChecksTheCrashReporterWithoutCreatingItsRecord) {
    auto findings = FindingsOf(Zoctl("doctor --json").json);
    const Json& record = findings["crash record"];
    EXPECT_EQ(record["severity"], "ok") << record;
    EXPECT_FALSE(std::filesystem::exists(zo::WideFromUtf8(record["finding"].get<std::string>()))) << record;
    EXPECT_FALSE(findings.contains("crash server")) << "nobody asked for it";
}

TEST_F(ZoctlDriver, DoctorFindsTheDebuggerEngineInTheSystemFolder) {
    const TempFolder alone;  // without the simulator's engine
    for (const char* file : {"zoctl.exe", "ZoProtectorLib.dll"})
        std::filesystem::copy_file(ProgramFolder() / file, alone / file);
    const ChildResult doctor = RunChild((alone / "zoctl.exe").wstring(), {L"doctor", L"--json"});
    auto findings = FindingsOf(Json::parse(doctor.out));
    EXPECT_EQ(findings["debugger engine"]["severity"], "ok") << "Windows and Wine have one";
}

// The registry's folder for dumps, until the end of its life. Windows has one from the beginning.
class ScopedDumpFolder {
  public:
    ScopedDumpFolder(const std::wstring& folder, DWORD type) {
        hadOne_ = RegGetValueW(HKEY_LOCAL_MACHINE, kCrashControl, L"MinidumpDir", RRF_RT_ANY | RRF_NOEXPAND, &oldType_,
                               old_, &oldBytes_) == ERROR_SUCCESS;
        Set(type, folder.c_str(), static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t)));
    }
    ~ScopedDumpFolder() {
        if (hadOne_) {
            Set(oldType_, old_, oldBytes_);
        } else {
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kCrashControl, L"MinidumpDir");
        }
    }
    ScopedDumpFolder(const ScopedDumpFolder&) = delete;
    ScopedDumpFolder& operator=(const ScopedDumpFolder&) = delete;

  private:
    static constexpr wchar_t kCrashControl[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
    static void Set(DWORD type, const wchar_t* value, DWORD bytes) {
        EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kCrashControl, L"MinidumpDir", type, value, bytes),
                  ERROR_SUCCESS);
    }

    bool hadOne_ = false;
    wchar_t old_[MAX_PATH] = {};
    DWORD oldType_ = 0;
    DWORD oldBytes_ = sizeof(old_);
};

TEST_F(ZoctlDriver, DoctorLooksIntoTheDumpFolderOfTheRegistry) {
    for (const DWORD type : {DWORD{REG_SZ}, DWORD{REG_EXPAND_SZ}}) {
        const ScopedDumpFolder folder(L"%SystemRoot%\\system32", type);
        auto findings = FindingsOf(Zoctl("doctor --json").json);
        EXPECT_EQ(findings["dump folder"]["finding"], Environment("SystemRoot") + "\\system32");
    }
}

TEST_F(ZoctlDriver, DoctorAsksTheCrashServerWhenTold) {
    // Nothing listens at the address of development builds.
    EXPECT_TRUE(Gave(Zoctl("doctor --online --json"), 40, "cannot be used"));
}

TEST_F(ZoctlDriver, InstallKeepsTheSettingsUnlessTold) {
    // The options, the settings that the service then has, and those that changed.
    const std::tuple<std::vector<std::string>, Json, Json> rows[] = {
        {{"--start", "auto", "--altitude", "385100.5", "--allow-unload"}, {"auto", "385100.5", true}, Json::array()},
        {{}, {"auto", "385100.5", true}, Json::array()},
        {{"--altitude", "385101"}, {"auto", "385101", true}, {"altitude"}},
        {{"--start", "demand", "--no-allow-unload"}, {"demand", "385101", false}, {"startType", "allowUnload"}},
    };
    for (const auto& [options, settings, changed] : rows) {
        std::vector<std::string> words = {"driver", "install", File(), "--json"};
        words.insert(words.end(), options.begin(), options.end());
        ZoctlRun run = RunZoctl(words);
        EXPECT_EQ(Json({run.json["startType"], run.json["altitude"], run.json["allowUnload"]}), settings) << run.out;
        EXPECT_EQ(Each(run, "changed", "setting"), changed) << run.out;
    }
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"startType", "demand"}, {"altitude", "385101"}}));
}

TEST_F(ZoctlDriver, InstallRefusesAnAltitudeThatIsNotANumber) {
    for (const char* altitude : {"high", "385100.", ".5", "1.2.3", "-1", "0x10"}) {
        EXPECT_TRUE(Gave(RunZoctl({"driver", "install", File(), "--altitude", altitude}), 2)) << altitude;
    }
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

TEST_F(ZoctlDriver, InstallReportsAnUnsignedFileAndOneThatItDidNotReplace) {
    const ZoctlRun run = RunZoctl({"driver", "install", File(), "--json"});
    EXPECT_TRUE(Gave(run, 0, "not signed; Windows is not likely to load the driver"));
    EXPECT_EQ(run.json["signature"]["loads"], "unlikely");
    EXPECT_EQ(run.json["signature"]["signer"], nullptr);
    const std::string other = File("ZoProtectorDriver_1_0_1.sys");
    EXPECT_TRUE(Gave(RunZoctl({"driver", "install", other, "--json"}), 0, "was kept", {{"fileKept", true}}));
}

TEST_F(ZoctlDriver, DoctorFindsTheInstanceOfADriverPackage) {
    InstallAndStart();
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (kKey + L"\\Instances").c_str());
    const std::wstring instances = kKey + L"\\Parameters\\Instances";
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, instances.c_str(), L"DefaultInstance", REG_SZ, L"P", 4);
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, (instances + L"\\P").c_str(), L"Altitude", REG_SZ, L"385101", 14);
    EXPECT_TRUE(Gave(Zoctl("doctor"), 0, "altitude 385101, below the key Parameters"));
}

TEST_F(ZoctlDriver, UpgradeReplacesNothingWhenNothingIsInstalled) {
    const auto nextToZoctl = ProgramFolder() / "ZoProtectorDriver.sys";
    const std::string before = ReadFileBytes(nextToZoctl);
    EXPECT_TRUE(Gave(RunZoctl({"driver", "upgrade", File("ZoProtectorDriver_1_0_1.sys")}), 3, "driver install"));
    EXPECT_TRUE(ReadFileBytes(nextToZoctl) == before);
    WriteFileBytes(nextToZoctl, before);
}

TEST_F(ZoctlDriver, InstallersWaitForEachOther) {
    const zo::OwnedKernelObject mutex(CreateMutexW(nullptr, TRUE, L"Global\\ZoProtectorDriverInstaller"));
    for (const std::string& command : {"install " + File(), "upgrade " + File(), std::string("uninstall")})
        EXPECT_TRUE(Gave(Zoctl("driver " + command + " --wait 0"), 1, "Another process is installing")) << command;
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    ReleaseMutex(mutex.Get());
    EXPECT_EQ(RunZoctl({"driver", "install", "--wait", "0", File()}).exitCode, 0);
}

TEST_F(ZoctlDriver, DoctorOpensNoLogThroughALink) {
    const TempFolder temporary;
    const TempFolder foreign;
    zo::CreateDirectories(temporary / "ZoProtector");
    LinkFolder(foreign.Path(), temporary / "ZoProtector" / "Logs");
    ChildOptions options;
    options.environment = {{L"TMP", temporary.Path().wstring()}};
    EXPECT_TRUE(Gave(Zoctl("doctor", options), 40, "is not written, because it or its folder is a link"));
    EXPECT_TRUE(std::filesystem::is_empty(foreign.Path()));
}

ChildOptions doctorOptions;

const auto moveFileAway = [] { std::filesystem::rename(kFile, kAway); };
const auto moveFileBack = [] { std::filesystem::rename(kAway, kFile); };
const auto markForDeletion = [] {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey.c_str(), L"DeleteFlag", REG_DWORD, "\1\0\0", 4);
};
const auto removeMark = [] { RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey.c_str(), L"DeleteFlag"); };
const auto removeInstance = [] { RegDeleteTreeW(HKEY_LOCAL_MACHINE, (kKey + L"\\Instances").c_str()); };
const auto resetSimulator = [] { SimulatorClient().Reset(); };

// The subject and the words of the one finding that the doctor has after the first step, until the second repairs it.
// The last two need no repair.
const Rows<const char*, void (*)(), void (*)()> kBreakages = {
    {"service", "stopped", [] { Zoctl("driver stop"); }, [] { Zoctl("driver start"); }},
    {"start type", "disabled", [] { Zoctl("driver set-start disabled"); }, [] { Zoctl("driver set-start demand"); }},
    {"protection", "off", [] { Zoctl("disable"); }, resetSimulator},
    {"driver file", "does not exist", moveFileAway, moveFileBack},
    {"file version", "no version", [] { moveFileAway(), WriteFileBytes(kFile, "no driver"); }, moveFileBack},
    {"deletion", "marked", markForDeletion, removeMark},
    {"handshake", "ZOP_E_VERSION_MISMATCH", [] { SimulatorClient().SetVersion(2, 0, 0); }, resetSimulator},
    {"rules", "cannot be read", [] { SimulatorClient().FailNext(ZOP_IOCTL_LIST_FILE_RULES, 0xC0000001, 9); },
     resetSimulator},
    {"diagnostic log", "cannot be written", [] { doctorOptions.environment = {{L"TMP", kFile}}; },
     [] { doctorOptions.environment.clear(); }},
    {"filter instance", "not registered", removeInstance, [] {}},
    {"service", "not installed", [] { Zoctl("driver uninstall"); }, [] {}},
};

TEST_F(ZoctlDriver, DoctorFindsTheBreakageAndNothingElse) {
    InstallAndStart();
    for (const auto& [subject, words, spoil, repair] : kBreakages) {
        spoil();
        const ZoctlRun run = Zoctl("doctor --json", doctorOptions);
        EXPECT_TRUE(Gave(run, 40, words));
        std::string wrong;
        for (const Json& finding : run.json["findings"])
            if (finding["severity"] == "wrong") wrong += finding["subject"].get<std::string>();
        EXPECT_EQ(wrong, subject) << words << "\n" << run.out;
        repair();
    }
    EXPECT_EQ(Zoctl("doctor --json").json["measured"]["driverVersion"], nullptr) << "there is no driver to ask";
}

}  // namespace
