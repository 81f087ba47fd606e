// Rule files read, checked and written, and the commands that lead to what they want.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <set>

#include "driver_records.h"
#include "fake_names.h"
#include "rows.h"
#include "rule_file.h"
#include "rule_plan.h"

namespace {

using namespace zoctl;

const zotest::FakeNames kNames;

// Reads a rule file; says its mistakes as lines "POINTER: MESSAGE".
std::string Mistakes(const std::string& text, RuleFile* file = nullptr) {
    std::vector<Mistake> mistakes;
    RuleFile read = ReadRuleFile(text, kNames, mistakes);
    if (file) *file = std::move(read);
    std::string lines;
    for (const auto& [pointer, message] : mistakes)
        lines += pointer + ": " + message + "\n";
    return lines;
}

void ExpectOneMistake(const std::string& text, const std::string& pointer, const std::string& words) {
    const std::string mistakes = Mistakes(text);
    EXPECT_TRUE(mistakes.starts_with(pointer + ": ")) << text << "\n" << mistakes;
    EXPECT_NE(mistakes.find(words), std::string::npos) << text << "\n" << mistakes;
    EXPECT_EQ(std::count(mistakes.begin(), mistakes.end(), '\n'), 1) << text << "\n" << mistakes;
}

// The same files as the schema is tried on: each is the one with everything and one change, [where, what], and where
// the mistake is when it is elsewhere.
TEST(RuleFileCheck, ReportsTheOneMistakeAtItsPlace) {
    std::ifstream stream(std::string(ZO_SOURCE_DIR) + "/tests/zoctl/rules/rule_files.json", std::ios::binary);
    const auto files = nlohmann::json::parse(stream);
    for (const auto& [kind, changes] : files.at("changes").items()) {
        for (const auto& change : changes) {
            auto document = files.at("everything");
            document[nlohmann::json::json_pointer(change[0].get<std::string>())] = change[1];
            if (kind == "accepted") {
                EXPECT_EQ(Mistakes(document.dump()), "") << change;
            } else {
                ExpectOneMistake(document.dump(), change[change.size() > 2 ? 2 : 0], "");
            }
        }
    }
}

TEST(RuleFileCheck, ReadsUtf16OfBothByteOrders) {
    std::u16string text =
        u"\uFEFF"
        uR"({"version": 1, "process": {"rules": [{"path": "C:\\日"}]}})";
    for (const char* order : {"of this machine", "swapped"}) {
        RuleFile file;
        EXPECT_EQ(Mistakes({reinterpret_cast<const char*>(text.data()), 2 * text.size()}, &file), "") << order;
        ASSERT_EQ(file.Count(Table::kProcess), 1u);
        EXPECT_EQ(file.tables[Index(Table::kProcess)]->front().given.name, "C:\\\xE6\x97\xA5");
        for (char16_t& unit : text)
            unit = static_cast<char16_t>(unit << 8 | unit >> 8);
    }
}

TEST(RuleFileCheck, NamesThePlaceOfInvalidJsonAndDuplicateMembers) {
    EXPECT_EQ(Mistakes("\xEF\xBB\xBF{\"version\": 1}"), "");
    ExpectOneMistake("", "", "cannot be read as JSON");
    ExpectOneMistake("{\n  \"version\": 1,\n}", "", "line 3");
    ExpectOneMistake("{\"version\": 1, \"comment\": \"\xFF\"}", "", "cannot be read as JSON");
    ExpectOneMistake("{\"version\": 1e999}", "", "'1e999'");
    ExpectOneMistake(
        R"({"version": 1, "file": {"rules": [{"folder": "C:\\a", "filter": ")" + std::string(128, '*') + R"("}]}})",
        "/file/rules/0/filter", "is longer than 127 characters");
    ExpectOneMistake(R"({"version": 1, "dll": {"folders": [], "enabled": true, "folders": []}})", "/dll/folders",
                     "duplicate member");
    ExpectOneMistake(R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}, {"path": "C:\\b", "path": "C:\\c"}]}})",
                     "/process/rules/1/path", "duplicate member");
}

TEST(RuleFileWrite, ReadsBackAsTheDriversRulesAndListsThoseLeftOut) {
    const std::string volume = "\\Device\\HarddiskVolume1\\";
    const std::string scope = "\\Device\\HarddiskVolume2\\s";
    using Tables = std::array<std::vector<Rule>, kTables>;
    const Tables kept = {{{{volume + "a.exe"}, {volume + "f", 1, 2}},
                          {{volume + "b", 1, 1, "*.\xC3\xA9"}, {"\\\\server\\s", 0, 1, "*", scope, 1, 1, 1}},
                          {{"\\REGISTRY\\MACHINE\\X", 0, 200}, {"\\REGISTRY\\USER\\S-1\\Y"}, {"\\REGISTRY\\A\\Z"}},
                          {{volume + "w", 1}}}};
    const Tables leftOut = {{{{"\\Device\\Mup\\x"}, {volume + "r", 0, 1}, {volume + "i", 2}},
                             {{volume + "c", 0, 0, "", "\\Device\\HarddiskVolume9\\s"},
                              {volume + "d", 0, 0, "*.x"},
                              {volume + "g", 1, 0, "", "", 1, 1},
                              {volume + "i", 1, 0, "a\nb"}},
                             {},
                             {}}};
    DriverState state{leftOut, true, {3, 9}};
    for (const Table table : kAllTables) {
        auto& rules = state.tables[Index(table)];
        rules.insert(rules.end(), kept[Index(table)].begin(), kept[Index(table)].end());
    }
    std::vector<std::string> sentences;
    RuleFile file;
    ASSERT_EQ(Mistakes(WriteRuleFile(state, kNames, sentences).dump(), &file), "");
    EXPECT_EQ(sentences.size(), leftOut[0].size() + leftOut[1].size());
    for (const Table table : kAllTables) {
        std::vector<Rule> wanted;
        for (const auto& rule : *file.tables[Index(table)])
            wanted.push_back(rule.nt);
        EXPECT_EQ(wanted, kept[Index(table)]) << TableName(table);
    }
    EXPECT_EQ(file.masterEnabled, true);
    EXPECT_EQ(file.policy, state.policy);
    EXPECT_FALSE(file.HasUnreadable());
}

// Otherwise a difference could show two rules that look the same.
TEST(RuleText, ShowsFlagsThatTheDriverHoldsWithoutTheirNames) {
    const Rule odd{"C:\\a", 0, 1, "", "", 1, 2, 1};
    EXPECT_EQ(RuleJson(Table::kFile, odd).dump(),
              R"({"path":"C:\\a","recursive":true,"scope":{"folder":"","recursive":2},"exclusive":true})");
    EXPECT_EQ(DescribeRule(Table::kFile, odd),
              "file 'C:\\a', recursive, scope folder '', scope recursive (2), exclusive");
    EXPECT_EQ(FromNtKey("\\registry\\machine\\X"), "HKLM\\X");
    EXPECT_EQ(FromNtKey("\\REGISTRY\\USER\\"), "\\REGISTRY\\USER\\") << "a root has no other name";
}

TEST(RuleEntry, HasARuleUnlessItIsShortOrATextHasNoEnd) {
    const std::size_t sizes[] = {sizeof(ZopRuleRecord), sizeof(ZopFileRuleRecord), sizeof(ZopRegistryRuleRecord),
                                 sizeof(ZopDllFolderRecord)};
    for (const Table table : kAllTables) {
        std::vector<std::uint8_t> entry(sizes[Index(table)]);
        EXPECT_EQ(DecodeEntry(table, entry), (Rule{"", table == Table::kDll})) << TableName(table);
        entry.pop_back();
        EXPECT_EQ(DecodeEntry(table, entry), std::nullopt) << TableName(table);
        EXPECT_EQ(DecodeEntry(table, std::vector<std::uint8_t>(sizes[Index(table)], 'x')), std::nullopt);
    }
    std::vector<std::uint8_t> path(sizeof(ZopFileRuleRecord));
    std::fill_n(path.begin() + offsetof(ZopFileRuleRecord, path), sizeof(ZopFileRuleRecord::path), 'x');
    EXPECT_EQ(DecodeEntry(Table::kFile, path), std::nullopt);
}

Rule Nt(Table table, Rule rule) {
    rule.name = (table == Table::kRegistry ? kNames.ToNtKey(rule.name) : kNames.ToNtPath(rule.name)).text;
    if (!rule.scope.empty()) rule.scope = kNames.ToNtPath(rule.scope).text;
    return rule;
}

std::string Identity(const Rule& rule) {
    return kNames.Fold(rule.name + "|" + rule.filter + "|" + rule.scope);
}

// A driver as the documents describe it: same path, filter and scope are the same rule, removal takes all of a path.
// False when it would refuse.
bool CarryOut(const Step& step, DriverState& driver) {
    auto& rules = driver.tables[Index(step.table)];
    const Rule nt = Nt(step.table, step.rule);
    const auto samePath = [&nt](const Rule& rule) { return kNames.Fold(rule.name) == kNames.Fold(nt.name); };
    const auto same = [&nt](const Rule& rule) { return Identity(rule) == Identity(nt); };
    if (step.kind == StepKind::kSwitchMaster) driver.masterEnabled = step.on;
    if (step.kind == StepKind::kSetPolicy) driver.policy = step.policy;
    if (step.kind == StepKind::kClearTable) rules.clear();
    if (step.kind == StepKind::kRemoveRule) return std::erase_if(rules, samePath) > 0;
    if (step.kind != StepKind::kAddRule) return true;
    const bool there = std::any_of(rules.begin(), rules.end(), same);
    if (!there) rules.push_back(nt);
    return !there;
}

WantedRules Wanted(Table table, const std::vector<Rule>& rules) {
    WantedRules wanted;
    for (const Rule& rule : rules)
        wanted.push_back({rule, Nt(table, rule), "/" + std::to_string(wanted.size())});
    return wanted;
}

// The kinds of the steps in words; "restore" is an add that is pointless without an earlier step.
std::string Kinds(const Plan& plan) {
    static constexpr const char* kKinds[] = {
        "remove",          "clear",           "add",      "clear file ignores", "file ignore", "clear registry ignores",
        "registry ignore", "clear overrides", "override", "file switch",        "dll switch",  "policy",
        "master switch"};
    static_assert(std::size(kKinds) == kStepKinds);
    std::string kinds;
    for (const Step& step : plan.steps) {
        const bool restores = step.kind == StepKind::kAddRule && step.needs >= 0;
        kinds += kinds.empty() ? "" : ", ";
        kinds += restores ? "restore" : kKinds[static_cast<std::size_t>(step.kind)];
    }
    return kinds;
}

TEST(RulePlan, TakesTheFewestStepsAndDetectsMassRemoval) {
    const Rule a{"C:\\a"}, b{"C:\\b"}, c{"C:\\c"}, d{"C:\\d"}, lower{"c:\\A"};
    const Rule exe{"C:\\f", 1, 1, "*.exe"}, dll{"C:\\f", 1, 1, "*.dll"}, txt{"C:\\f", 1, 1, "*.txt"};
    const Rule flat{"C:\\F", 1, 0, "*.EXE"}, single{"C:\\f", 0, 1, "*.exe"}, lost{"X:\\x"};  // no drive leads to lost
    const Rule s{"C:\\s", 0, 0, "", "D:\\s", 1, 1, 1}, shared{"C:\\s", 0, 0, "", "D:\\s", 1, 1, 0};
    const Rule scopeFlat{"C:\\s", 0, 0, "", "D:\\s", 1, 0, 1}, scopeFile{"C:\\s", 0, 0, "", "D:\\s", 0, 1, 1};
    constexpr bool kMass = true, kFew = false;
    // The rules that are held and those that are wanted, the steps, and whether they are a mass removal.
    const zotest::Rows<std::vector<Rule>, std::vector<Rule>, const char*, bool> rows = {
        {"nothing to do, spelt otherwise", {a, b}, {b, lower}, "", kFew},
        {"half of them", {a, b}, {a}, "remove", kFew},
        {"the last one", {a}, {}, "remove", kMass},
        {"all of several", {a, b, c}, {}, "clear", kMass},
        {"most of them: clearing is cheaper", {b, c, d, exe}, {b}, "clear, restore", kMass},
        {"as dear both ways: nothing is cleared", {a, b, c}, {c}, "remove, remove", kMass},
        {"one of two rules of a path: one returns", {a, b, c, exe, dll}, {a, b, c, dll}, "remove, restore", kFew},
        {"beside the one that returns, a new one", {exe, dll}, {dll, txt}, "remove, restore, add", kFew},
        {"a second rule of a path: nothing goes", {exe}, {exe, dll}, "add", kFew},
        {"only clearing removes it", {a, b, lost}, {a, b}, "clear, restore, restore", kFew},
        {"what lies below, too", {flat}, {exe}, "remove, restore", kFew},
        {"exclusive now", {shared}, {s}, "remove, restore", kFew},
        {"no longer what lies below", {exe}, {flat}, "remove, restore", kMass},
        {"one goes, one covers less", {a, b, exe}, {b, flat}, "remove, remove, restore", kMass},
        {"a folder becomes a file", {exe}, {single}, "remove, restore", kMass},
        {"no longer exclusive", {s}, {shared}, "remove, restore", kMass},
        {"a smaller scope", {s}, {scopeFlat}, "remove, restore", kMass},
        {"a scope of one process", {s}, {scopeFile}, "remove, restore", kMass},
    };
    for (const auto& [name, held, wanted, steps, isMassRemoval] : rows) {
        SCOPED_TRACE(name);
        DriverState state;
        for (const Rule& rule : held) {
            state.tables[Index(Table::kFile)].push_back(Nt(Table::kFile, rule));
            if (rule == lost) state.tables[Index(Table::kFile)].back().name = "\\Device\\HarddiskVolume9\\x";
        }
        RuleFile file;
        file.tables[Index(Table::kFile)] = Wanted(Table::kFile, wanted);
        const Plan plan = MakePlan(file, state, kNames, false);
        EXPECT_EQ(Kinds(plan), steps);
        EXPECT_EQ(MeasureRemoval(plan, state, Compare(file, state, kNames)).IsMass(), isMassRemoval);
        file.fileEnabled = false;
        EXPECT_TRUE(MeasureRemoval(MakePlan(file, state, kNames, true), state, Compare(file, state, kNames)).IsMass());
    }
}

// Rules out of few names and flags, so that collisions of every kind come up.
std::vector<Rule> RandomRules(Table table, std::mt19937& random) {
    std::vector<Rule> rules;
    std::set<std::string> identities;
    const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
    for (unsigned i = below(9); i > 0; --i) {
        Rule rule{table == Table::kRegistry ? "HKLM\\" : "C:\\"};
        rule.name += static_cast<char>((below(2) ? 'a' : 'A') + static_cast<int>(below(4)));
        rule.isFolder = table == Table::kDll || (table != Table::kRegistry && below(2));
        rule.recursive = static_cast<std::uint8_t>(below(3));
        if (table == Table::kFile && below(2)) rule.filter = below(2) ? "*.x" : "*.X";
        if (table == Table::kFile && below(3) == 0) rule.scope = "D:\\s";
        if (identities.insert(Identity(rule)).second) rules.push_back(rule);
    }
    return rules;
}

TEST(RulePlan, LeadsFromAnyStateToAnyFile) {
    std::mt19937 random(20240305);
    for (int round = 0; round < 500; ++round) {
        DriverState state;
        RuleFile file;
        for (const Table table : kAllTables) {
            for (const Rule& rule : RandomRules(table, random)) {
                Rule& held = state.tables[Index(table)].emplace_back(Nt(table, rule));
                if (table != Table::kRegistry && random() % 12 == 0) held.name = "\\Device\\HarddiskVolume9\\lost";
            }
            if (random() % 4) file.tables[Index(table)] = Wanted(table, RandomRules(table, random));
        }
        if (random() % 2) file.masterEnabled = random() % 2 == 0;
        if (random() % 2) file.policy = Policy{static_cast<std::uint8_t>(random() % 2), 1};
        const Plan plan = MakePlan(file, state, kNames, false);
        DriverState driver = state;
        for (const Step& step : plan.steps) {
            ASSERT_TRUE(CarryOut(step, driver)) << round << ": " << DescribeStep(step);
            if (step.needs < 0) continue;
            const Step& needed = plan.steps[static_cast<std::size_t>(step.needs)];
            ASSERT_TRUE(needed.table == step.table && needed.kind != StepKind::kAddRule) << DescribeStep(needed);
        }
        ASSERT_TRUE(Compare(file, driver, kNames).None()) << round;
        for (const Table table : kAllTables) {  // what is not managed stays
            const std::size_t i = Index(table);
            ASSERT_TRUE(file.tables[i] || driver.tables[i] == state.tables[i]) << round;
        }
    }
}

TEST(RulePlan, RemovesByTheSpellingOfTheFile) {
    DriverState state;
    state.tables[Index(Table::kFile)] = {Nt(Table::kFile, {"C:\\f", 1, 0, "*.exe"})};
    RuleFile file;
    file.tables[Index(Table::kFile)] = Wanted(Table::kFile, {{"c:\\F", 1, 0, "*.dll"}});
    EXPECT_EQ(DescribeStep(MakePlan(file, state, kNames, false).steps.at(0)), "remove all file rules of 'c:\\F'");
}

TEST(RulePlan, SeesThatOnlyASwitchOrThePolicyDiffers) {
    RuleFile master, policy;
    master.masterEnabled = true;
    policy.policy = Policy{0, 1};
    EXPECT_FALSE(Compare(master, {}, kNames).None());
    EXPECT_FALSE(Compare(policy, {}, kNames).None());
}

// What cannot be read back goes first, so that the tables still differ when it fails; but the DLL filter waits for its
// folders.
TEST(RulePlan, SwitchesTheDllFilterOnAfterItsFoldersAndOffBefore) {
    const std::string kIgnores =
        "clear file ignores, file ignore, clear registry ignores, registry ignore, clear overrides, override, ";
    const Rule a{"C:\\a"}, b{"C:\\b"};
    RuleFile file;
    file.dllEnabled = true;
    EXPECT_EQ(Kinds(MakePlan(file, {}, kNames, false)), "dll switch");
    file.tables[Index(Table::kProcess)] = Wanted(Table::kProcess, {a});
    file.tables[Index(Table::kDll)] = Wanted(Table::kDll, {b});
    file.fileIgnore = file.registryIgnore = Wanted(Table::kProcess, {b});
    file.overrides = {7};
    file.fileEnabled = true;
    file.masterEnabled = true;
    EXPECT_EQ(Kinds(MakePlan(file, {}, kNames, false)), kIgnores + "file switch, add, dll switch, add, master switch");
    file.dllEnabled = false;
    EXPECT_EQ(Kinds(MakePlan(file, {}, kNames, false)), kIgnores + "file switch, dll switch, add, add, master switch");
}

}  // namespace
