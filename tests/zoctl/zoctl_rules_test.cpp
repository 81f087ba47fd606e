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
                  {"folder": "C:\\d", "recursive": true, "scope": {"path": "C:\\s\\a.exe"}, "exclusive": true}],
        "ignore": [{"path": "C:\\s\\u.exe"}]
    },
    "registry": {"rules": [{"key": "HKLM\\S", "recursive": true}], "ignore": []},
    "dll": {"folders": [{"folder": "C:\\w", "recursive": true}]},
    "signature": {"policy": {"mode": 1, "minLevel": 2}, "overrides": [7]}
})";

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
    EXPECT_NE(second.err.find("--resend"), std::string::npos);
    EXPECT_EQ(Rules({"diff", file}).exitCode, 0);
    EXPECT_EQ(Rules({"apply", file, "--resend"}).exitCode, 0);
    EXPECT_EQ(changes_.size(), 6u);

    // What the driver has now, written as a file, is in force too.
    EXPECT_EQ(Rules({"export", Path("out.json")}).exitCode, 0);
    EXPECT_EQ(Rules({"export", Path("out.json")}).exitCode, 6);
    EXPECT_EQ(Rules({"apply", Path("out.json")}).exitCode, 0);
    EXPECT_EQ(changes_, Codes{});
    EXPECT_EQ(RunZoctl({"rules", "export"}).out, zotest::ReadFileBytes(folder_ / "out.json"));
}

TEST_F(ZoctlRules, ListsMoreRulesThanTheFirstArrayHolds) {
    std::string rules;
    for (int i = 0; i < 300; ++i)
        rules += (i ? "," : "") + std::string("{\"path\":\"C:\\\\") + std::to_string(i) + "\"}";
    EXPECT_EQ(Rules({"apply", Write("{\"version\":1,\"process\":{\"rules\":[" + rules + "]}}")}).exitCode, 0);
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
        std::vector<std::string> pointers;
        for (const Json& mistake : run.json["mistakes"])
            pointers.push_back(mistake["pointer"]);
        std::sort(pointers.begin(), pointers.end());
        EXPECT_EQ(pointers, (std::vector<std::string>{"/extra", "/process/rules/0/path", "/process/rules/1/folder",
                                                      "/registry/rules/1"}))
            << run.out;
        EXPECT_EQ(sent.Codes(), Codes{});
    }
    EXPECT_EQ(Rules({"check", Write(kFull)}).exitCode, 0);
    EXPECT_EQ(Rules({"check", Path("none.json")}).exitCode, 3);
    EXPECT_NE(RunZoctl({"rules", "check", Write("{\n\n]")}).out.find("line 3"), std::string::npos);
}

TEST_F(ZoctlRules, RefusesToRemoveMostUnlessToldSo) {
    ASSERT_EQ(Rules({"apply", Write(kFull)}).exitCode, 0);
    const std::string empty =
        Write(R"({"version": 1, "process": {"rules": []}, "file": {"rules": []}, "registry": {"rules": []}})");
    const ZoctlRun refused = Rules({"apply", empty});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(changes_, Codes{});
    EXPECT_NE(refused.json["message"].get<std::string>().find("7 of the 7"), std::string::npos) << refused.out;
    EXPECT_EQ(Rules({"apply", empty, "--allow-mass-removal"}).exitCode, 0);
    EXPECT_EQ(changes_,
              (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_CLEAR_FILE_RULES, ZOP_IOCTL_REMOVE_REGISTRY_RULE}));
    EXPECT_EQ(Rules({"apply", Write(R"({"version": 1, "master": {"enabled": false}})")}).exitCode, 1);
    EXPECT_EQ(changes_, Codes{});
}

TEST_F(ZoctlRules, SaysWhatWasDoneAndWhatWasNotWhenAStepFails) {
    const std::string file = Write(R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}, {"path": "C:\\b"},
        {"path": "C:\\c"}]}})");
    Simulator().SetCapacity(ZOSIM_TABLE_PROCESS, 2);
    const ZoctlRun full = Rules({"apply", file});
    EXPECT_EQ(full.exitCode, 50);
    EXPECT_EQ(full.json["steps"][1]["outcome"], "done");
    EXPECT_EQ(full.json["steps"][2]["outcome"], "failed");
    EXPECT_EQ(full.json["steps"][2]["status"]["name"], "ZOP_E_QUOTA_EXCEEDED");
    EXPECT_EQ(full.json["inForce"], 2);
    EXPECT_EQ(full.json["difference"]["tables"]["process"]["missing"][0]["pointer"], "/process/rules/2");

    // One failing add stops nothing; the next run sends only what is missing.
    Simulator().Reset();
    Simulator().FailNext(ZOP_IOCTL_ADD_PROCESS_RULE, 0xC0000001);
    EXPECT_EQ(Rules({"apply", file}).exitCode, 50);
    EXPECT_EQ(changes_.size(), 3u);
    EXPECT_EQ(Rules({"apply", file}).exitCode, 0);
    EXPECT_EQ(changes_, Codes{ZOP_IOCTL_ADD_PROCESS_RULE});

    // A removal that fails: what stands behind it is not tried, and the rule is told as different.
    const std::string other = Write(R"({"version": 1, "process": {"rules": [{"folder": "C:\\a"}, {"path": "C:\\b"},
        {"path": "C:\\c"}]}})");
    Simulator().FailNext(ZOP_IOCTL_REMOVE_PROCESS_RULE, 0xC0000022);
    const ZoctlRun denied = Rules({"apply", other});
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
    EXPECT_EQ(Rules({"apply", other}).exitCode, 50);
    EXPECT_EQ(Rules({"apply", other}).exitCode, 0);
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
    ASSERT_EQ(RunZoctl({"process", "add", "C:\\b"}).exitCode, 0);
    const std::string file = Write(R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}, {"path": "C:\\b"}]}})");
    const ZoctlRun diff = Rules({"diff", file});
    EXPECT_EQ(diff.json["tables"]["process"]["surplus"][0]["onlyByClear"], true) << diff.out;
    EXPECT_NE(RunZoctl({"rules", "diff", file}).out.find("only clearing"), std::string::npos);
    EXPECT_EQ(RunZoctl({"rules", "list", "--json"}).json["tables"]["process"]["rules"][0]["win32"], nullptr);
    const ZoctlRun exported = Rules({"export", Path("out.json")});
    EXPECT_EQ(exported.exitCode, 1);
    EXPECT_EQ(exported.json["leftOut"].size(), 1u);
    EXPECT_EQ(Rules({"apply", file}).exitCode, 0);
    EXPECT_EQ(changes_, (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_ADD_PROCESS_RULE, ZOP_IOCTL_ADD_PROCESS_RULE}));
}

}  // namespace
