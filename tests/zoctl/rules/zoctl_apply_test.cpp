#include "rules_fixture.h"

namespace {

using namespace zotest;

TEST_F(ZoctlRules, ApplyingTwiceSendsNothingTheSecondTime) {
    EXPECT_TRUE(Gave(Do("diff", kFull), 50));
    EXPECT_EQ(changes_, Codes{});
    const ZoctlRun dry = Do("apply", kFull, {"--dry-run"});
    EXPECT_TRUE(Gave(dry, 0, "15 commands would be sent."));
    EXPECT_EQ(dry.err, "");
    EXPECT_EQ(changes_, Codes{});

    const ZoctlRun first = Apply(kFull);
    EXPECT_TRUE(Gave(first, 0, "", {{"inForce", 8}, {"unreadable", "sent"}, {"notSent", Json::array()}}));
    EXPECT_EQ(first.err, "");
    // 8 rules; file ignores cleared and filled, registry ignores cleared, overrides cleared and filled, the file
    // switch; the policy. The master switch is on already.
    EXPECT_EQ(changes_.size(), 8u + 2 + 1 + 2 + 1 + 1);
    EXPECT_EQ(first.json["steps"].size(), changes_.size());
    EXPECT_EQ(TableCounts(), (Codes{2, 4, 1, 1, 1, 0, 1}));
    const ZoSimState state = Simulator().State();
    EXPECT_TRUE(state.fileProtectEnabled == 1 && state.signatureMode == 1 && state.signatureMinLevel == 2);

    EXPECT_TRUE(Gave(Apply(kFull), 0, "--resend", {{"unreadable", "held back"}, {"notSent", kUnreadable}}));
    EXPECT_EQ(changes_, Codes{});
    EXPECT_TRUE(Gave(Do("diff", kFull), 0, "cannot be read back."));
    EXPECT_TRUE(Gave(Do("apply", kFull, {"--resend"}), 0,
                     "6 commands sent. All 8 rules of the file are in force, read back from the driver."));
    EXPECT_EQ(changes_.size(), 6u);

    // What the driver has now, written as a file, is in force too. Nothing else is touched on the way.
    WriteFileBytes(folder_ / "out.json.1.new", "mine");
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json")}), 0));
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json")}), 6, "Give --force to replace it."));
    EXPECT_TRUE(Gave(Rules({"export", Path("none\\out.json")}), 3));
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json"), "--force"}), 0));
    EXPECT_EQ(ReadFileBytes(folder_ / "out.json.1.new"), "mine");
    const std::filesystem::directory_iterator files(folder_.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 3);
    EXPECT_TRUE(Gave(Rules({"apply", Path("out.json")}), 0));
    EXPECT_EQ(changes_, Codes{});
    const ZoctlRun shown = Rules({"export"});
    EXPECT_TRUE(Gave(shown, 0, "The file leaves them out."));
    EXPECT_EQ(shown.out, ReadFileBytes(folder_ / "out.json"));
    EXPECT_TRUE(shown.out.starts_with("{\n    \"version\": 1,") && shown.out.find("日") != std::string::npos)
        << shown.out;
}

TEST_F(ZoctlRules, ApplyRefusesAMassRemovalUnlessAllowed) {
    ASSERT_EQ(Apply(kFull).exitCode, 0);
    const char* const empty = R"({"version": 1, "process": {"rules": []}, "file": {"rules": []},
                                  "registry": {"rules": []}, "dll": {}})";
    const ZoctlRun refused = Apply(empty);
    EXPECT_TRUE(Gave(refused, 1, "7 of the 7"));
    EXPECT_EQ(changes_, Codes{});
    EXPECT_EQ(Each(refused, "steps", "outcome"), Json({"not tried", "not tried", "not tried"}));
    EXPECT_EQ(Do("apply", empty, {"--dry-run", "--json"}).json["steps"], refused.json["steps"]);
    const ZoctlRun dry = Do("apply", empty, {"--dry-run"});
    EXPECT_TRUE(Gave(dry, 0, "would send clear the process table"));
    EXPECT_TRUE(Gave(dry, 0, {"--allow-mass-removal"}));
    EXPECT_TRUE(Gave(Do("apply", empty, {"--allow-mass-removal"}), 0));
    EXPECT_EQ(changes_,
              (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_CLEAR_FILE_RULES, ZOP_IOCTL_REMOVE_REGISTRY_RULE}));
    EXPECT_TRUE(Gave(Apply(R"({"version": 1, "master": {"enabled": false}})"), 1));
    EXPECT_EQ(changes_, Codes{});
}

TEST_F(ZoctlRules, ApplyStopsAtAFullTableAndCountsTheRest) {
    Simulator().SetCapacity(ZOSIM_TABLE_PROCESS, 2);
    Json file = Json::parse(kAbc);
    for (int i = 0; i < 50; ++i)
        file["process"]["rules"].push_back({{"path", "C:\\more" + std::to_string(i)}});
    file["registry"]["rules"] = {{{"key", "HKLM\\S"}}, {{"key", "HKLM\\T"}}};
    Simulator().SetCapacity(ZOSIM_TABLE_REGISTRY, 1);
    const ZoctlRun run = Apply(file.dump());
    EXPECT_TRUE(Gave(run, 8, "", {{"inForce", 3}}));
    EXPECT_EQ(run.json["fullTables"],
              Json({{{"table", "process"}, {"notAdded", 51}}, {{"table", "registry"}, {"notAdded", 1}}}));
    Simulator().SetCapacity(ZOSIM_TABLE_REGISTRY, 2);
    EXPECT_EQ(std::count(changes_.begin(), changes_.end(), ZOP_IOCTL_ADD_PROCESS_RULE), 3);
    EXPECT_EQ(run.json["steps"][2]["outcome"], "failed");
    EXPECT_EQ(run.json["steps"][2]["status"]["name"], "ZOP_E_QUOTA_EXCEEDED");
    EXPECT_EQ(run.json["steps"][3]["outcome"], "not tried");
    EXPECT_EQ(run.json["difference"]["tables"]["process"]["missing"][0]["pointer"], "/process/rules/2");
    const ZoctlRun text = Do("apply", file.dump(), {});
    EXPECT_TRUE(Gave(text, 8, "process: the driver's table is full; 51 rules were not added."));
    EXPECT_TRUE(Gave(text, 8, "/process/rules/6)\n  + 46 more\n"));
    EXPECT_EQ(text.out.find("not tried"), std::string::npos) << text.out;
    EXPECT_TRUE(Gave(Do("apply", kAbc, {}), 8, "process: the driver's table is full; 1 rule was not added."));
}

TEST_F(ZoctlRules, ApplyAfterAFailureGoesOnWhereItCanAndFinishesTheNextTime) {
    const auto fail = [](std::uint32_t code, std::uint32_t status) {
        return ZoSimFault{code, 0, 1, ZOSIM_FAULT_STATUS, status, 0, 0, 0, {}};
    };
    const std::uint32_t readFirst = 7;  // with the handshake
    const ZoSimFault gone{ZOSIM_ANY_CODE, readFirst, ZOSIM_FOR_EVER, ZOSIM_FAULT_STATUS, 0xC0000001, 0, 0, 0, {}};
    constexpr const char* kNone = R"({"version": 1, "process": {"rules": []}})";
    constexpr std::uint32_t kAdd = ZOP_IOCTL_ADD_PROCESS_RULE, kRemove = ZOP_IOCTL_REMOVE_PROCESS_RULE;
    const Rows<const char*, ZoSimFault, const char*, int, Codes, Json> rows = {
        {"an add", kNone, fail(kAdd, 0xC0000001), kAbc, 50, {kAdd, kAdd, kAdd}, {"failed", "done", "done"}},
        {"an add that does nothing", kNone, fail(kAdd, 0), kAbc, 50, {kAdd, kAdd, kAdd}, {"done", "done", "done"}},
        {"an add without a driver",
         kNone,
         fail(kAdd, 0xC0000034),
         kAbc,
         50,
         {kAdd},
         {"failed", "not tried", "not tried"}},
        {"a removal", kAbc, fail(kRemove, 0xC0000022), kFolderA, 50, {kRemove}, {"failed", "not tried"}},
        {"a removal that does nothing", kAbc, fail(kRemove, 0), kFolderA, 50, {kRemove, kAdd}, {"done", "failed"}},
        {"the driver stops answering", kNone, gone, kAbc, 1, {kAdd}, {"failed", "not tried", "not tried"}},
    };
    for (const auto& [name, held, fault, wanted, exitCode, changes, outcomes] : rows) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(Gave(Do("apply", held, {"--allow-mass-removal"}), 0));
        Simulator().AddFault(fault);
        const ZoctlRun run = Apply(wanted);
        EXPECT_TRUE(Gave(run, exitCode, "Apply the file again; then only what is missing is sent."));
        EXPECT_EQ(changes_, changes);
        EXPECT_EQ(Each(run, "steps", "outcome"), outcomes);
        Simulator().ClearFaults();
        EXPECT_TRUE(Gave(Apply(wanted), 0));
    }
}

// What cannot be read back goes first and the rest waits for it: otherwise the next application would find nothing
// wrong.
TEST_F(ZoctlRules, ApplyAfterAFailureSendsAgainWhatCannotBeReadBack) {
    Simulator().FailNext(ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, 0xC0000044);
    EXPECT_TRUE(Gave(Apply(kFull), 8,
                     "--resend: file.ignore, registry.ignore, signature.overrides, file.enabled cannot be read back",
                     {{"notSent", kUnreadable}}));
    EXPECT_EQ(changes_, (Codes{ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS}));
    EXPECT_TRUE(Gave(Apply(kFull), 0, "", {{"notSent", Json::array()}}));
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_FILE_IGNORE], 1u);
    Simulator().FailNext(ZOP_IOCTL_ENABLE_FILE_PROTECT, 0xC0000022);
    EXPECT_TRUE(Gave(Do("apply", R"({"version": 1, "file": {"enabled": true}})"), 50, "failed: 1, not tried: 0.",
                     {{"notSent", {"file.enabled"}}}));
}

TEST_F(ZoctlRules, ApplyShowsWhatBecameOfEachCommand) {
    const char* const text = R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}]},
                                 "registry": {"rules": [{"key": "HKLM\\S"}]}, "signature": {"overrides": [7]}})";
    Simulator().FailNext(ZOP_IOCTL_ADD_REGISTRY_RULE, 0xC000000D);
    ZoctlRun run = Do("apply", text, {});
    EXPECT_TRUE(
        run.out.starts_with("done       clear the signature overrides\n"
                            "done       signature override for process 7\n"
                            "done       add process rule: file 'C:\\a'\n"
                            "FAILED     add registry rule: key 'HKLM\\S': ZOP_E_INVALID_ARG 0x80000008\n"))
        << run.out;
    EXPECT_TRUE(Gave(run, 50, "Give a key that begins with"));
    Simulator().FailNext(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, 0xC0000035);
    run = Do("apply", text, {"--resend"});
    EXPECT_TRUE(Gave(run, 50, "The process is exempt already."));
    EXPECT_TRUE(Gave(run, 50, "not tried  add registry rule"));
    EXPECT_TRUE(Gave(Apply(text), 0));
    EXPECT_TRUE(Gave(Apply(text), 0, "", {{"unreadable", "held back"}}));
}

TEST_F(ZoctlRules, ApplyReportsNoRuleInForceWhileItsSwitchIsOff) {
    const std::string open = R"({"version": 1, "file": {)", rules = R"("rules": [{"path": "C:\\a"}]})";
    EXPECT_TRUE(Gave(Apply(open + rules + "}"), 0, "zoctl file enable", {{"inForce", 1}}));
    EXPECT_TRUE(
        Gave(Rules({"apply", Path("rules.json")}), 0, "0 commands sent. The rule of the file is in force, read back"));
    EXPECT_TRUE(Gave(Zoctl("disable"), 0));
    EXPECT_TRUE(Gave(Apply(open + rules + "}"), 50, "held but not in force", {{"inForce", 0}}));
    EXPECT_TRUE(Gave(Apply(open + rules + R"(, "master": {"enabled": false}})"), 0, "", {{"inForce", 0}}));
    EXPECT_TRUE(Gave(Zoctl("enable"), 0));
    EXPECT_TRUE(Gave(Do("apply", open + R"("enabled": false, )" + rules + "}", {"--allow-mass-removal", "--json"}), 0,
                     "", {{"inForce", 0}, {"held", 1}}));
}

}  // namespace
