#include "zoctl_process.h"

namespace {

using zotest::Json;
using zotest::RunZoctl;
using zotest::SentCodes;
using zotest::ZoctlRun;

using Codes = std::vector<std::uint32_t>;

constexpr const char* kFull = R"({
    "version": 1,
    "master": {"enabled": true},
    "process": {"rules": [{"path": "C:\\s\\a.exe"}, {"folder": "C:\\s\\bin", "recursive": true}]},
    "file": {
        "enabled": true,
        "rules": [{"path": "C:\\s\\x.ini"}, {"folder": "C:\\s", "filter": "*.exe"}, {"folder": "C:\\s", "filter": "*.dll"},
                  {"folder": "C:\\d", "recursive": true, "scope": {"folder": "C:\\s"}, "exclusive": true}],
        "ignore": [{"path": "C:\\s\\u.exe"}]
    },
    "registry": {"rules": [{"key": "HKLM\\S", "recursive": true}], "ignore": []},
    "dll": {"folders": [{"folder": "C:\\w", "recursive": true}]},
    "signature": {"policy": {"mode": 1, "minLevel": 2}, "overrides": [7]}
})";
constexpr const char* kAbc =
    R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}, {"path": "C:\\b"}, {"path": "C:\\c"}]}})";

bool IsReading(std::uint32_t code) {
    static const Codes kReading = {ZOP_IOCTL_LIST_PROCESS_RULES,  ZOP_IOCTL_LIST_FILE_RULES,
                                   ZOP_IOCTL_LIST_REGISTRY_RULES, ZOP_IOCTL_LIST_DLL_WHITELIST,
                                   ZOP_IOCTL_GET_MASTER_ENABLED,  ZOP_IOCTL_GET_SIGNATURE_POLICY};
    return std::find(kReading.begin(), kReading.end(), code) != kReading.end();
}

class ZoctlRules : public zotest::DriverTest {
  protected:
    std::string Write(const std::string& text) {
        zotest::WriteFileBytes(folder_ / "rules.json", text);
        return Path("rules.json");
    }
    std::string Path(const char* name) { return zo::Utf8FromWide((folder_ / name).wstring()); }

    // Runs "rules VERB FILE ... --json" and gathers the changing commands that it sent.
    ZoctlRun Rules(std::vector<std::string> words) {
        const SentCodes sent(Simulator());
        words.insert(words.begin(), "rules");
        words.push_back("--json");
        ZoctlRun run = RunZoctl(words);
        changes_ = sent.Codes();
        std::erase_if(changes_, IsReading);
        return run;
    }
    ZoctlRun Apply(const std::string& text, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"apply", Write(text)});
        return Rules(options);
    }

    Codes changes_;
    zotest::TempFolder folder_;
};

TEST_F(ZoctlRules, ApplyingTwiceSendsNothingTheSecondTime) {
    const std::string file = Write(kFull);
    EXPECT_EQ(Rules({"diff", file}).exitCode, 50);
    EXPECT_EQ(changes_, Codes{});
    const ZoctlRun dry = Rules({"apply", file, "--dry-run"});
    EXPECT_EQ(changes_, Codes{});

    const ZoctlRun first = Rules({"apply", file});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.json["inForce"], 8);
    EXPECT_EQ(first.json["unreadable"], "sent");
    EXPECT_EQ(first.json["notSent"], Json::array());
    EXPECT_EQ(first.json["steps"].size(), changes_.size());
    EXPECT_EQ(dry.json["steps"].size(), changes_.size());
    // 8 rules; file ignores cleared and filled, registry ignores cleared, overrides cleared and filled, the file
    // switch; the policy. The master switch is on already.
    EXPECT_EQ(changes_.size(), 8u + 2 + 1 + 2 + 1 + 1);
    const ZoSimState state = Simulator().State();
    EXPECT_EQ(state.fileProtectEnabled, 1u);
    EXPECT_EQ(state.tableCount[ZOSIM_TABLE_FILE], 4u);
    EXPECT_EQ(state.tableCount[ZOSIM_TABLE_FILE_IGNORE], 1u);
    EXPECT_EQ(state.tableCount[ZOSIM_TABLE_OVERRIDE], 1u);
    EXPECT_EQ(state.signatureMinLevel, 2u);

    const ZoctlRun second = Rules({"apply", file});
    EXPECT_EQ(second.exitCode, 0) << second.err;
    EXPECT_EQ(changes_, Codes{});
    EXPECT_EQ(second.json["unreadable"], "held back");
    EXPECT_EQ(second.json["notSent"], (Json{"file.ignore", "registry.ignore", "signature.overrides", "file.enabled"}));
    EXPECT_NE(second.err.find("--resend"), std::string::npos);
    EXPECT_EQ(Rules({"diff", file}).exitCode, 0);
    EXPECT_EQ(Rules({"apply", file, "--resend"}).exitCode, 0);
    EXPECT_EQ(changes_.size(), 6u);

    // What the driver has now, written as a file, is in force too. Nothing else is touched on the way.
    zotest::WriteFileBytes(folder_ / "out.json.1.new", "mine");
    EXPECT_EQ(Rules({"export", Path("out.json")}).exitCode, 0);
    EXPECT_EQ(Rules({"export", Path("out.json")}).exitCode, 6);
    EXPECT_EQ(Rules({"export", Path("out.json"), "--force"}).exitCode, 0);
    EXPECT_EQ(zotest::ReadFileBytes(folder_ / "out.json.1.new"), "mine");
    const std::filesystem::directory_iterator files(folder_.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 3);
    EXPECT_EQ(Rules({"apply", Path("out.json")}).exitCode, 0);
    EXPECT_EQ(changes_, Codes{});
    EXPECT_EQ(RunZoctl({"rules", "export"}).out, zotest::ReadFileBytes(folder_ / "out.json"));
    const std::string list = RunZoctl({"rules", "list", "--table", "file"}).out;
    EXPECT_NE(list.find("folder C:\\s"), std::string::npos) << list;
}

TEST_F(ZoctlRules, ListsMoreRulesThanTheFirstArrayHolds) {
    std::string rules;
    for (int i = 0; i < 300; ++i)
        rules += (i ? "," : "") + std::string("{\"path\":\"C:\\\\") + std::to_string(i) + "\"}";
    EXPECT_EQ(Apply("{\"version\":1,\"process\":{\"rules\":[" + rules + "]}}").exitCode, 0);
    const ZoctlRun list = Rules({"list"});
    ASSERT_EQ(list.json["tables"]["process"]["rules"].size(), 300u);
    EXPECT_EQ(list.json["tables"]["process"]["rules"][299]["win32"], "C:\\299");
    EXPECT_EQ(list.json["tables"]["file"]["rules"].size(), 0u);
}

TEST_F(ZoctlRules, ChecksWithoutADriverAndNamesEveryMistake) {
    const std::string file = Write(R"({"version": 1, "process": {"rules": [{"path": "a.exe"}, {"folder": "Q:\\x"}]},
        "registry": {"rules": [{"key": "HKCU\\A"}, {"key": "hkey_current_user\\a"}]}, "extra": 1})");
    for (const char* verb : {"check", "diff", "apply"}) {
        const SentCodes sent(Simulator());
        const ZoctlRun run = Rules({verb, file});
        EXPECT_EQ(run.exitCode, 2) << verb;
        std::set<std::string> pointers;
        for (const Json& mistake : run.json["mistakes"])
            pointers.insert(mistake["pointer"]);
        EXPECT_EQ(pointers, (std::set<std::string>{"/extra", "/process/rules/0/path", "/process/rules/1/folder",
                                                   "/registry/rules/1"}))
            << run.out;
        EXPECT_EQ(sent.Codes(), Codes{});
    }
    EXPECT_EQ(Rules({"check", Write(kFull)}).exitCode, 0);
    EXPECT_EQ(Rules({"check", Path("none.json")}).exitCode, 3);
    EXPECT_NE(RunZoctl({"rules", "check", Write("{\n\n]")}).out.find("line 3"), std::string::npos);
}

TEST_F(ZoctlRules, RefusesToRemoveMostUnlessToldSo) {
    ASSERT_EQ(Apply(kFull).exitCode, 0);
    const char* const empty =
        R"({"version": 1, "process": {"rules": []}, "file": {"rules": []}, "registry": {"rules": []}})";
    const ZoctlRun refused = Apply(empty);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(changes_, Codes{});
    EXPECT_NE(refused.json["message"].get<std::string>().find("7 of the 7"), std::string::npos) << refused.out;
    const ZoctlRun dry = RunZoctl({"rules", "apply", Path("rules.json"), "--dry-run"});
    EXPECT_EQ(dry.exitCode, 0);
    EXPECT_NE(dry.out.find("would send clear the process table"), std::string::npos) << dry.out;
    EXPECT_NE(dry.err.find("--allow-mass-removal"), std::string::npos) << dry.err;
    EXPECT_EQ(Apply(empty, {"--allow-mass-removal"}).exitCode, 0);
    EXPECT_EQ(changes_,
              (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_CLEAR_FILE_RULES, ZOP_IOCTL_REMOVE_REGISTRY_RULE}));
    EXPECT_EQ(Apply(R"({"version": 1, "master": {"enabled": false}})").exitCode, 1);
    EXPECT_EQ(changes_, Codes{});
}

TEST_F(ZoctlRules, SaysWhatWasDoneAndWhatWasNotWhenAStepFails) {
    Simulator().SetCapacity(ZOSIM_TABLE_PROCESS, 2);
    const ZoctlRun full = Apply(kAbc);
    EXPECT_EQ(full.exitCode, 50);
    EXPECT_EQ(full.json["steps"][1]["outcome"], "done");
    EXPECT_EQ(full.json["steps"][2]["outcome"], "failed");
    EXPECT_EQ(full.json["steps"][2]["status"]["name"], "ZOP_E_QUOTA_EXCEEDED");
    EXPECT_EQ(full.json["inForce"], 2);
    EXPECT_EQ(full.json["difference"]["tables"]["process"]["missing"][0]["pointer"], "/process/rules/2");

    // One failing add stops nothing; the next run sends only what is missing.
    Simulator().Reset();
    Simulator().FailNext(ZOP_IOCTL_ADD_PROCESS_RULE, 0xC0000001);
    EXPECT_EQ(Apply(kAbc).exitCode, 50);
    EXPECT_EQ(changes_.size(), 3u);
    EXPECT_EQ(Apply(kAbc).exitCode, 0);
    EXPECT_EQ(changes_, Codes{ZOP_IOCTL_ADD_PROCESS_RULE});

    // A removal that fails: what stands behind it is not tried, and the rule is told as different.
    const char* const other =
        R"({"version": 1, "process": {"rules": [{"folder": "C:\\a"}, {"path": "C:\\b"}, {"path": "C:\\c"}]}})";
    Simulator().FailNext(ZOP_IOCTL_REMOVE_PROCESS_RULE, 0xC0000022);
    const ZoctlRun denied = Apply(other);
    EXPECT_EQ(denied.exitCode, 50);
    EXPECT_EQ(changes_, Codes{ZOP_IOCTL_REMOVE_PROCESS_RULE});
    EXPECT_EQ(denied.json["steps"][1]["outcome"], "not tried");
    EXPECT_EQ(denied.json["difference"]["tables"]["process"]["changed"].size(), 1u);

    // The driver takes a command and does nothing: reading back finds it out.
    ZoSimFault fault{};
    fault.code = ZOP_IOCTL_REMOVE_PROCESS_RULE;
    fault.times = 1;
    fault.flags = ZOSIM_FAULT_STATUS;  // success, not carried out
    Simulator().AddFault(fault);
    EXPECT_EQ(Apply(other).exitCode, 50);
    EXPECT_EQ(Apply(other).exitCode, 0);
}

// A driver that no longer answers: one failure, not one for each rule.
TEST_F(ZoctlRules, StopsWhenTheDriverFailsAltogether) {
    ZoSimFault fault{};
    fault.code = ZOSIM_ANY_CODE;
    fault.status = 0xC0000001;
    fault.times = 1000;
    fault.flags = ZOSIM_FAULT_STATUS;
    fault.skip = 7;  // the handshake and what is read first
    Simulator().AddFault(fault);
    EXPECT_EQ(Apply(kAbc).exitCode, 1);
    EXPECT_EQ(changes_, Codes{ZOP_IOCTL_ADD_PROCESS_RULE});
}

// What cannot be read back goes first and the rest waits for it: otherwise the next application would see nothing amiss.
TEST_F(ZoctlRules, TheApplicationAfterAFailedOneSendsWhatCannotBeReadBackToo) {
    Simulator().FailNext(ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, 0xC0000044);
    const ZoctlRun failed = Apply(kFull);
    EXPECT_EQ(failed.exitCode, 50);
    EXPECT_EQ(changes_, (Codes{ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS}));
    EXPECT_NE(failed.json["advice"].get<std::string>().find("--resend"), std::string::npos) << failed.err;
    EXPECT_EQ(failed.json["notSent"], (Json{"file.ignore", "registry.ignore", "signature.overrides", "file.enabled"}));
    const ZoctlRun again = Apply(kFull);
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(again.json["notSent"], Json::array());
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_FILE_IGNORE], 1u);
}

TEST_F(ZoctlRules, CallsNoRuleInForceThatASwitchKeepsIdle) {
    constexpr const char* kFiles = R"({"version": 1, "file": {"rules": [{"path": "C:\\a"}]}})";
    const ZoctlRun unknown = Apply(kFiles);
    EXPECT_EQ(unknown.json["inForce"], 1);
    EXPECT_NE(unknown.err.find("zoctl file enable"), std::string::npos) << unknown.err;
    ASSERT_EQ(RunZoctl({"disable"}).exitCode, 0);
    const struct {
        const char* text;
        int exitCode;
        int inForce;
        const char* words;
    } cases[] = {
        {kFiles, 50, 0, "none is in force"},
        {R"({"version": 1, "master": {"enabled": false}, "file": {"rules": [{"path": "C:\\a"}]}})", 0, 0, ""},
        {R"({"version": 1, "master": {"enabled": true}, "process": {"rules": [{"path": "C:\\p"}]},
             "file": {"enabled": false, "rules": [{"path": "C:\\a"}]}})",
         0, 1, ""},
    };
    for (const auto& one : cases) {
        const ZoctlRun run = Apply(one.text, {"--allow-mass-removal"});
        EXPECT_EQ(run.exitCode, one.exitCode) << one.text << run.err;
        EXPECT_EQ(run.json["inForce"], one.inForce) << one.text;
        EXPECT_NE(run.err.find(one.words), std::string::npos) << run.err;
    }
}

TEST_F(ZoctlRules, SaysWhenARuleCanOnlyBeCleared) {
    // Put into the driver directly, for no drive path leads to the volume.
    ZopRuleRecord record{};
    zotest::SetField(record.path, L"\\Device\\HarddiskVolume99\\x.exe");
    {
        const zo::OwnedFile driver = zotest::OpenDriver();
        ASSERT_EQ(zotest::SendControl(driver.Get(), ZOP_IOCTL_ADD_PROCESS_RULE, &record, sizeof(record)).error, 0u);
    }
    ASSERT_EQ(RunZoctl({"process", "add", "C:\\a"}).exitCode, 0);
    const std::string file = Write(R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}]}})");
    const ZoctlRun diff = Rules({"diff", file});
    EXPECT_EQ(diff.json["tables"]["process"]["surplus"][0]["onlyByClear"], true) << diff.out;
    EXPECT_FALSE(diff.json["message"].empty() || diff.json["advice"].empty());
    EXPECT_NE(RunZoctl({"rules", "diff", file}).out.find("only clearing"), std::string::npos);
    EXPECT_EQ(RunZoctl({"rules", "list", "--json"}).json["tables"]["process"]["rules"][0]["win32"], nullptr);
    const ZoctlRun exported = Rules({"export", Path("out.json")});
    EXPECT_EQ(exported.exitCode, 1);
    EXPECT_EQ(exported.json["leftOut"].size(), 1u);
    EXPECT_EQ(Rules({"apply", file}).exitCode, 0);
    EXPECT_EQ(changes_, (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_ADD_PROCESS_RULE}));
}

}  // namespace
