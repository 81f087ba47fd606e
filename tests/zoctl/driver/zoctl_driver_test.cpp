#include <windows.h>

#include <regex>

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
    const ZoctlRun missing = Zoctl("driver install C:\\none.sys");
    EXPECT_TRUE(Gave(missing, 3, "install the driver 'C:\\none.sys': "));
    EXPECT_TRUE(Gave(missing, 3, "Check the path of the driver's file."));
    ASSERT_EQ(RunZoctl({"driver", "install", File(), "--start", "auto"}).exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "stopped"}, {"startType", "auto"}}));
    EXPECT_EQ(Zoctl("driver set-start demand").exitCode, 0);
    EXPECT_EQ(Zoctl("driver start").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "running"}, {"instanceRegistered", true}}));
    const ZoctlRun running = Zoctl("driver status");
    EXPECT_TRUE(Gave(running, 0, "filter altitude  385100\nfile version     1.0.0.0\n"));
    EXPECT_EQ(running.err, "");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Zoctl("driver self-protect").exitCode, 0);
    EXPECT_EQ(SimulatorClient().State().fileProtectEnabled, 1u);
    EXPECT_EQ(SimulatorClient().State().tableCount[ZOSIM_TABLE_REGISTRY], 1u);
    EXPECT_EQ(Zoctl("driver stop").exitCode, 0);
    EXPECT_EQ(Zoctl("driver uninstall").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "not installed"}, {"fileVersion", nullptr}}));
    EXPECT_EQ(Zoctl("driver status").out, "DRIVER SERVICE\nstate           not installed\n");
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

TEST_F(ZoctlDriver, DoctorShowsAllThatItMeasured) {
    InstallAndStart();
    EXPECT_TRUE(Gave(Zoctl("process add C:\\a"), 0));
    EXPECT_TRUE(Gave(Zoctl("registry add HKLM\\X"), 0));
    SimulatorClient().InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 5);
    SimulatorClient().InjectEvents(ZOSIM_RING_REGISTRY, ZOP_REGISTRY_EVENT_RING_SIZE + 7);
    ZoSimCounters counters{};
    counters.values[ZOSIM_COUNTER_UNSIGNED_BYPASS] = 3;
    SimulatorClient().SetCounters(counters);
    const ZoctlRun run = Zoctl("doctor --json");
    EXPECT_EQ(run.json["measured"], Json::parse(R"({"fileVersion": "1.0.0.0",
        "driverVersion": "1.0.0", "rules": {"process": 1, "file": 0, "registry": 1, "dll": 0},
        "lost": {"main": 5, "registry": 7}, "unsignedBypassAttempts": 3})"));
    EXPECT_EQ(Each(run, "findings", "subject"),
              Json({"service", "start type", "driver file", "file version", "driver signature", "filter instance",
                    "device", "handshake", "protection", "rules", "events", "counters", "diagnostic log", "library",
                    "debugger engine", "dump folder", "crash record"}));
    const ZoctlRun text = Zoctl("doctor");
    for (const char* words :
         {"ok    file version      1.0.0.0, the running version\nnote  driver signature  not signed",
          "ok    handshake         driver 1.0.0\nok    protection        switched on\n"
          "ok    rules             1 process, 0 file, 1 registry, 0 DLL folders\n",
          "\n\nHow to fix it:\n  driver signature: ", "\n\nNothing is wrong.\n"})
        EXPECT_TRUE(Gave(text, 0, words)) << words;
    EXPECT_EQ(Zoctl("driver stop").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("doctor"), 40, "\nWRONG  service           stopped\n"));
    EXPECT_EQ(Zoctl("driver set-start disabled").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("doctor"), 40, "2 things are wrong."));
}

std::map<std::string, Json> FindingsOf(const Json& answer) {
    std::map<std::string, Json> findings;
    for (const Json& one : answer["findings"])
        findings[one["subject"]] = one;
    return findings;
}

TEST_F(ZoctlDriver, DoctorChecksTheCrashReporterWithoutCreatingItsRecord) {
    auto findings = FindingsOf(Zoctl("doctor --json").json);
    const Json record = findings["crash record"];
    EXPECT_EQ(record["severity"], "ok") << record;
    const std::filesystem::path path = zo::WideFromUtf8(record["finding"].get<std::string>());
    EXPECT_FALSE(std::filesystem::exists(path)) << record;
    EXPECT_FALSE(findings.contains("crash server")) << "nobody asked for it";
}

TEST_F(ZoctlDriver, DoctorSaysThatAnotherProgramHoldsTheRecord) {
    const std::filesystem::path path =
        zo::WideFromUtf8(FindingsOf(Zoctl("doctor --json").json)["crash record"]["finding"].get<std::string>());
    const bool isNew = std::filesystem::create_directories(path.parent_path());
    zo::OwnedFile held(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    EXPECT_TRUE(Gave(Zoctl("doctor"), 40, path.string() + " cannot be written, error 32"));
    held.Reset();
    if (isNew) std::filesystem::remove(path.parent_path());
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
    const std::string windows = Environment("SystemRoot");
    const std::string usual = windows + "\\Minidump does not exist; Windows creates it at the first crash";
    const std::size_t fits = 519 - Environment("TMP").size();  // what the buffers hold besides a variable's value
    const Rows<std::wstring, DWORD, std::string> rows = {
        {"text", L"%SystemRoot%\\system32", REG_SZ, windows + "\\system32"},
        {"text with variables", L"%SystemRoot%\\system32", REG_EXPAND_SZ, windows + "\\system32"},
        {"one character", L".", REG_SZ, "."},
        {"empty", L"", REG_SZ, usual},
        {"empty with its variables", L"%ZO_EMPTY%", REG_SZ, usual},
        {"too long", L"%SystemRoot%" + std::wstring(520 - 12, L'\\'), REG_SZ, usual},
        {"not too long", L"%TMP%" + std::wstring(fits, L'\\'), REG_SZ, Environment("TMP") + std::string(fits, '\\')},
        {"too long with its variables", L"%TMP%" + std::wstring(fits + 1, L'\\'), REG_SZ, usual},
    };
    ChildOptions options;
    options.environment = {{L"ZO_EMPTY", L""}};
    for (const auto& [name, value, type, finding] : rows) {
        const ScopedDumpFolder folder(value, type);
        const std::string found = FindingsOf(Zoctl("doctor --json", options).json)["dump folder"]["finding"];
        EXPECT_EQ(found.substr(0, finding.size()), finding) << name;
    }
}

TEST_F(ZoctlDriver, DoctorAsksTheCrashServerWhenTold) {
    // Nothing listens at the address of development builds.
    EXPECT_TRUE(Gave(Zoctl("doctor --online --json"), 40, "/crash cannot be used: no connection"));
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
    EXPECT_EQ(run.json, Json::parse(R"({"command": "driver install", "ok": true, "exitCode": 0, "startType": "demand",
        "altitude": "385100", "allowUnload": false, "reinstalled": false, "changed": [], "fileKept": false,
        "signature": {"signer": null, "loads": "unlikely",
                      "finding": "not signed; Windows is not likely to load the driver"}})"));
    EXPECT_TRUE(std::regex_match(run.err, std::regex("driver signature: not signed; .*\nStart it with .*\n")))
        << run.err;
    const ZoctlRun other = RunZoctl({"driver", "install", File("ZoProtectorDriver_1_0_1.sys"), "--json"});
    EXPECT_TRUE(Gave(other, 0, "", {{"fileKept", true}}));
    EXPECT_TRUE(other.err.starts_with("The installed file was kept: ")) << other.err;
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
    EXPECT_TRUE(Gave(Zoctl("driver uninstall --help"), 0, "3600"));
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

TEST_F(ZoctlDriver, DoctorFindsAServiceMarkedForDeletion) {
    InstallAndStart();
    const zo::OwnedService service = OpenDriverService();
    ASSERT_TRUE(DeleteService(service.Get()));
    EXPECT_TRUE(Gave(Zoctl("doctor"), 40, "the service is marked for deletion"));
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
    {"driver file", "does not exist", [] { moveFileAway(), zo::CreateDirectories(kFile); },
     [] { std::filesystem::remove(kFile), moveFileBack(); }},
    {"file version", "1.0.0.0, but 1.2.3 is running", [] { SimulatorClient().SetVersion(1, 2, 3); }, resetSimulator},
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
        EXPECT_TRUE(Gave(run, 40, words, {{"message", "1 thing is wrong."}}));
        std::string wrong;
        for (const Json& finding : run.json["findings"])
            if (finding["severity"] == "wrong") wrong += finding["subject"].get<std::string>();
        EXPECT_EQ(wrong, subject) << words << "\n" << run.out;
        repair();
    }
    EXPECT_EQ(Zoctl("doctor --json").json["measured"]["driverVersion"], nullptr) << "there is no driver to ask";
}

}  // namespace
