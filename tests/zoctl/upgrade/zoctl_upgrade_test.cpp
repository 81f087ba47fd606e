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
        for (const char* line :
             {"process add C:\\Suite\\\xC3\xA4gent.exe", "file add-folder C:\\Suite -r --filter *.exe",
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
    EXPECT_TRUE(Gave(run, 0, "",
                     {{"upgraded", true}, {"restarted", true}, {"restartRequired", false}, {"rulesFile", nullptr}}));
    EXPECT_EQ(run.err,
              "Not kept, because the old driver could not be asked for it: file.enabled, file.ignore, "
              "registry.ignore, dll.enabled, signature.overrides. A rule file that has it can be given with "
              "--rules.\n");
    EXPECT_EQ(run.json["rules"]["held"], 3);
    EXPECT_FALSE(run.json["rules"].contains("file"));
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
    const Json untouched = {
        {"upgraded", false}, {"replacedByDriver", false}, {"restarted", false}, {"restartRequired", false}};
    const ZoctlRun run = Newer(kKeep);
    EXPECT_TRUE(Gave(run, 1, "The driver holds a rule that a rule file cannot express.", untouched));
    EXPECT_TRUE(run.err.starts_with("Cannot be kept: ") && run.err.find("HarddiskVolume9") < run.err.find('\n'))
        << run.err;
    wcscpy(reinterpret_cast<wchar_t*>(rule.path), (NtPath(L"C:\\") + std::wstring(300, L'x')).c_str());
    ASSERT_EQ(SendControl(OpenDriver().Get(), ZOP_IOCTL_ADD_PROCESS_RULE, &rule, sizeof(rule), nullptr, 0).error, 0u);
    EXPECT_TRUE(Gave(Newer(kKeep), 1, "The driver holds 2 rules that a rule file cannot express.", untouched));
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "running"}, {"fileVersion", "1.0.0.0"}}));
    EXPECT_EQ(SimulatorClient().State().tableCount[ZOSIM_TABLE_PROCESS], 2u);
}

TEST_F(ZoctlUpgrade, LeavesTheRulesInAFileWhenTheNewDriverDoesNotStart) {
    AddRules();
    const std::string rules = Zoctl("rules export").out;
    const ZoctlRun run = Upgrade("C:\\windows\\system32\\version.dll", kKeep);  // has a version, and is not a driver
    EXPECT_TRUE(Gave(run, 1, "start the new driver", {{"upgraded", true}, {"restarted", false}}));
    ASSERT_TRUE(run.json["rulesFile"].is_string()) << run.out;
    const std::string file = run.json["rulesFile"];
    EXPECT_EQ(ReadFileBytes(zo::WideFromUtf8(file)), rules);
    EXPECT_TRUE(run.err.ends_with(" more.\nThe rules of the old driver are in '" + file +
                                  "'; \"zoctl rules apply\" brings them back.\n"))
        << run.err;
}

TEST_F(ZoctlUpgrade, RestartsNoDriverWhoseRulesCannotBeSaved) {
    EXPECT_TRUE(Gave(Newer({}), 0));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path());  // without a temporary folder the log is written here
    const std::tuple<std::wstring, int, std::string> rows[] = {
        {L"C:\\none", 3, "save the driver's rules in 'C:\\none\\zoctl_rules_"},
        {std::wstring(300, L'x'), 1, "save the driver's rules in the temporary folder: "}};
    for (const auto& [temporary, exitCode, words] : rows) {
        options_.environment = {{L"TMP", temporary}};
        EXPECT_TRUE(Gave(Newer(kKeep), exitCode, words, {{"restarted", false}, {"rulesFile", nullptr}}));
    }
    std::filesystem::current_path(before);
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
    EXPECT_TRUE(Gave(Upgrade(File("ZoProtectorDriver_noversion.sys"), {}), 1, "has no version", {{"upgraded", false}}));
    EXPECT_TRUE(Gave(Upgrade(File(), {}), 0, "", {{"upgraded", false}, {"replacedByDriver", false}}));
}

TEST_F(ZoctlUpgrade, RestartsADriverWhoseFileWasReplacedEarlier) {
    EXPECT_TRUE(Gave(Newer({}), 0, "keeps its old image", {{"restartRequired", true}, {"restarted", false}}));
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"fileVersion", "1.0.1.0"}}));
    EXPECT_TRUE(Gave(Zoctl("doctor"), 40, "1.0.0 is running"));
    SimulatorClient().SetVersion(1, 5, 0);
    EXPECT_TRUE(Gave(Newer({"--restart"}), 0, "", {{"restartRequired", false}, {"restarted", false}}));
    SimulatorClient().Reset();
    EXPECT_TRUE(Gave(Newer({"--restart"}), 0, "holds no rules", {{"upgraded", false}, {"restarted", true}}));
    EXPECT_TRUE(Gave(Newer({"--restart"}), 0, "", {{"restartRequired", false}, {"restarted", false}}));
}

TEST_F(ZoctlUpgrade, LeavesAStoppedDriverStopped) {
    ASSERT_EQ(Zoctl("driver stop").exitCode, 0);
    EXPECT_TRUE(Gave(Newer(kKeep), 0, "", {{"upgraded", true}, {"restartRequired", false}, {"restarted", false}}));
    EXPECT_TRUE(Gave(Zoctl("driver status --json"), 0, "", {{"state", "stopped"}}));
}

}  // namespace
