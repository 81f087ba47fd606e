#include <windows.h>

#include <numeric>

#include "zoctl_process.h"

// "driver upgrade --restart --keep-rules": what the running driver holds before and after.

namespace {

using namespace zotest;

class ZoctlUpgrade : public ZoctlServiceTest {
  protected:
    void SetUp() override {
        ZoctlServiceTest::SetUp();
        options_.environment = {{L"TMP", folder_.Path().wstring()}};
        InstallAndStart();
    }

    void AddRules() {
        for (const char* line : {"process add C:\\Suite\\agent.exe", "file add-folder C:\\Suite -r --filter *.exe",
                                 "registry add HKLM\\Suite -r", "signature policy --mode 1 --min-level 2", "disable"})
            ASSERT_EQ(Zoctl(line).exitCode, 0) << line;
    }
    ZoctlRun Upgrade(const std::string& file, const std::vector<std::string>& more) {
        std::vector<std::string> words = {"driver", "upgrade", file, "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return RunZoctl(words, options_);
    }
    ZoctlRun Newer(const std::vector<std::string>& more) { return Upgrade(File("ZoProtectorDriver_1_0_1.sys"), more); }

    TempFolder folder_;  // where zoctl saves rules and moves the old file to
    ChildOptions options_;
};

const std::vector<std::string> kKeep = {"--restart", "--keep-rules"};

TEST_F(ZoctlUpgrade, PutsTheRulesBackAfterTheRestart) {
    AddRules();
    const Json before = Zoctl("rules export").json;
    const ZoctlRun run = Newer(kKeep);
    EXPECT_TRUE(Gave(run, 0, "Not kept, because the old driver could not be asked for it: file.enabled, ",
                     {{"upgraded", true}, {"restarted", true}, {"restartRequired", false}, {"rulesFile", nullptr}}));
    EXPECT_EQ(run.json["rules"]["held"], 3);
    EXPECT_EQ(run.json["notKept"].size(), 5u);
    EXPECT_EQ(Zoctl("rules export").json, before);
    EXPECT_TRUE(Gave(Zoctl("status --json"), 0, "", {{"driverVersion", "1.0.1"}}));
    for (const auto& entry : std::filesystem::directory_iterator(folder_.Path()))
        EXPECT_NE(entry.path().extension(), ".json") << entry.path();
}

TEST_F(ZoctlUpgrade, TakesWhatCannotBeReadBackFromTheRuleFile) {
    AddRules();
    const auto file = folder_.Path() / "rules.json";
    WriteFileBytes(file, R"({"version":1,"file":{"enabled":true,"ignore":[{"path":"C:\\a.exe"}]},
                             "registry":{"rules":[]},"signature":{"overrides":[4]}})");
    const ZoctlRun run = Newer({"--restart", "--keep-rules", "--rules", zo::Utf8FromWide(file.wstring())});
    EXPECT_TRUE(Gave(run, 0, "", {{"notKept", {"registry.ignore", "dll.enabled"}}}));
    EXPECT_EQ(SimulatorClient().State().fileProtectEnabled, 1u);
    // The rules are those of the driver and not those of the file.
    EXPECT_EQ(TableCounts(), (Codes{1, 1, 1, 0, 1, 0, 1}));
}

TEST_F(ZoctlUpgrade, ChangesNothingWhenARuleFileCannotExpressARule) {
    ZopRuleRecord rule{};
    wcscpy(reinterpret_cast<wchar_t*>(rule.path), L"\\Device\\HarddiskVolume9\\a.exe");  // no drive leads there
    ASSERT_EQ(SendControl(OpenDriver().Get(), ZOP_IOCTL_ADD_PROCESS_RULE, &rule, sizeof(rule), nullptr, 0).error, 0u);
    EXPECT_TRUE(Gave(Newer(kKeep), 1, "HarddiskVolume9",
                     {{"upgraded", false}, {"replacedByDriver", false}, {"restarted", false}}));
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "running"}, {"fileVersion", "1.0.0.0"}}));
    EXPECT_EQ(SimulatorClient().State().tableCount[ZOSIM_TABLE_PROCESS], 1u);
}

TEST_F(ZoctlUpgrade, LeavesTheRulesInAFileWhenTheNewDriverDoesNotStart) {
    AddRules();
    const ZoctlRun run = Upgrade("C:\\windows\\system32\\version.dll", kKeep);  // has a version, and is not a driver
    EXPECT_TRUE(Gave(run, 1, "start the new driver", {{"upgraded", true}, {"restarted", false}}));
    ASSERT_TRUE(run.json["rulesFile"].is_string()) << run.out;
    EXPECT_TRUE(Gave(RunZoctl({"rules", "check", run.json["rulesFile"]}), 0));
}

TEST_F(ZoctlUpgrade, LeavesTheRulesInAFileWhenTheyCannotBePutBack) {
    const auto file = folder_.Path() / "rules.json";
    std::vector<int> tooMany(ZOSIM_DEFAULT_CAPACITY + 1);
    std::iota(tooMany.begin(), tooMany.end(), 4);
    WriteFileBytes(file, Json{{"version", 1}, {"signature", {{"overrides", tooMany}}}}.dump());
    const ZoctlRun run = Newer({"--restart", "--keep-rules", "--rules", zo::Utf8FromWide(file.wstring())});
    EXPECT_TRUE(Gave(run, 8, "", {{"upgraded", true}, {"restarted", true}}));
    ASSERT_TRUE(run.json["rulesFile"].is_string()) << run.out;
    EXPECT_TRUE(Gave(RunZoctl({"rules", "check", run.json["rulesFile"]}), 0));
}

TEST_F(ZoctlUpgrade, TakesNoFileThatHasNoVersionOrIsNotNewer) {
    EXPECT_TRUE(Gave(Upgrade(File("ZoProtectorDriver_noversion.sys"), {}), 1, "has no version"));
    EXPECT_TRUE(Gave(Upgrade(File(), {}), 0, "", {{"upgraded", false}}));
}

TEST_F(ZoctlUpgrade, RestartsADriverWhoseFileWasReplacedEarlier) {
    EXPECT_TRUE(Gave(Newer({}), 0, "keeps its old image", {{"restartRequired", true}, {"restarted", false}}));
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"fileVersion", "1.0.1.0"}}));
    EXPECT_TRUE(Gave(Zoctl("doctor"), 40, "1.0.0 is running"));
    EXPECT_TRUE(Gave(Newer({"--restart"}), 0, "holds no rules", {{"upgraded", false}, {"restarted", true}}));
    EXPECT_TRUE(Gave(Newer({"--restart"}), 0, "", {{"restartRequired", false}, {"restarted", false}}));
}

TEST_F(ZoctlUpgrade, LeavesAStoppedDriverStopped) {
    ASSERT_EQ(Zoctl("driver stop").exitCode, 0);
    EXPECT_TRUE(Gave(Newer(kKeep), 0, "", {{"upgraded", true}, {"restartRequired", false}, {"restarted", false}}));
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "stopped"}}));
}

}  // namespace
