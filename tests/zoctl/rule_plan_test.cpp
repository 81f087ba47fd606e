#include "rule_plan.h"

#include <gtest/gtest.h>

#include <random>

#include "fake_names.h"

namespace {

using zoctl::DriverState;
using zoctl::kAllTables;
using zoctl::Plan;
using zoctl::Rule;
using zoctl::RuleFile;
using zoctl::Step;
using zoctl::StepKind;
using zoctl::Table;

const FakeNames kNames;

// A driver as the documents describe it: same path, filter and scope are the same rule, removal takes all of a path.
// Every command must succeed, as it would have to on the real one.
class ModelDriver {
  public:
    explicit ModelDriver(DriverState state) : state_(std::move(state)) {}

    bool Send(const Step& step) {
        auto& rules = state_.tables[Index(step.table)];
        switch (step.kind) {
            case StepKind::kClearTable:
                rules.clear();
                return true;
            case StepKind::kRemoveRule:
                return std::erase_if(rules, [&](const Rule& rule) {
                           return kNames.Fold(rule.name) == kNames.Fold(Nt(step.table, step.rule).name);
                       }) > 0;
            case StepKind::kAddRule: {
                const Rule added = Nt(step.table, step.rule);
                for (const Rule& rule : rules) {
                    if (Identity(rule) == Identity(added)) return false;
                }
                rules.push_back(added);
                return true;
            }
            case StepKind::kSwitchMaster:
                state_.masterEnabled = step.on;
                return true;
            case StepKind::kSetPolicy:
                state_.policy = step.policy;
                return true;
            default:
                return true;
        }
    }
    [[nodiscard]] const DriverState& State() const { return state_; }

    static Rule Nt(Table table, Rule rule) {
        rule.name = (table == Table::kRegistry ? kNames.ToNtKey(rule.name) : kNames.ToNtPath(rule.name)).text;
        if (!rule.scope.empty()) rule.scope = kNames.ToNtPath(rule.scope).text;
        return rule;
    }

  private:
    static std::string Identity(const Rule& rule) {
        return kNames.Fold(rule.name + "|" + rule.filter + "|" + rule.scope);
    }

    DriverState state_;
};

zoctl::WantedRules Wanted(Table table, const std::vector<Rule>& rules) {
    zoctl::WantedRules wanted;
    for (const Rule& rule : rules) {
        wanted.push_back({rule, ModelDriver::Nt(table, rule), "/" + std::to_string(wanted.size())});
    }
    return wanted;
}

// One letter a command, in the order of StepKind: R remove, C clear, A add; then the parts that cannot be read back
// (clear and add of the file ignores, the registry ignores and the overrides, the two switches), policy and master.
std::string Letters(const std::vector<Step>& steps) {
    std::string letters;
    for (const Step& step : steps)
        letters += "RCAifgjoOFDPM"[static_cast<int>(step.kind)];
    return letters;
}

TEST(RulePlan, TakesTheFewestCommands) {
    const Rule a{"C:\\a"}, b{"C:\\b"}, c{"C:\\c"}, d{"C:\\d"}, lower{"c:\\A"};
    const Rule exe{"C:\\f", 1, 1, "*.exe"}, dll{"C:\\f", 1, 1, "*.dll"}, exeFlat{"C:\\F", 1, 0, "*.EXE"};
    const Rule lost{"\\Device\\HarddiskVolume9\\x"};  // no drive leads there
    const struct {
        const char* name;
        std::vector<Rule> held;  // Win32 names, but for lost
        std::vector<Rule> wanted;
        const char* letters;
    } cases[] = {
        {"nothing to do, spelt otherwise", {a, b}, {b, lower}, ""},
        {"all new", {}, {a, b, c}, "AAA"},
        {"one more", {a, b}, {a, b, c}, "A"},
        {"one less", {a, b, c}, {a, b}, "R"},
        {"the last one", {a}, {}, "R"},
        {"all of several", {a, b, c}, {}, "C"},
        {"most of them: clearing is cheaper", {b, c, d, exe}, {b}, "CA"},
        {"as dear both ways: nothing is cleared", {a, b, c}, {c}, "RR"},
        {"one of two rules of a path goes: both go, one returns", {a, b, c, exe, dll}, {a, b, c, dll}, "RA"},
        {"a second rule of a path: nothing goes", {exe}, {exe, dll}, "A"},
        {"another flag", {a, b, exe}, {a, b, exeFlat}, "RA"},
        {"only clearing removes it", {a, b, lost}, {a, b}, "CAA"},
    };
    for (const auto& one : cases) {
        DriverState state;
        for (const Rule& rule : one.held) {
            state.tables[Index(Table::kFile)].push_back(rule.name == lost.name ? rule
                                                                               : ModelDriver::Nt(Table::kFile, rule));
        }
        RuleFile file;
        file.tables[Index(Table::kFile)] = Wanted(Table::kFile, one.wanted);
        EXPECT_EQ(Letters(MakePlan(file, state, kNames, false).steps), one.letters) << one.name;
    }
}

// Rules out of few names and flags, so that collisions of every kind come up.
std::vector<Rule> RandomRules(Table table, std::mt19937& random, bool withLost) {
    std::vector<Rule> rules;
    const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
    for (unsigned i = below(9); i > 0; --i) {
        Rule rule;
        const char letter = static_cast<char>((below(2) ? 'a' : 'A') + static_cast<int>(below(4)));
        rule.name = (table == Table::kRegistry ? "HKLM\\" : "C:\\") + std::string(1, letter);
        if (withLost && table != Table::kRegistry && below(12) == 0) rule.name = "X:\\lost";
        rule.isFolder = table == Table::kDll || (table != Table::kRegistry && below(2));
        rule.recursive = static_cast<std::uint8_t>(below(3));
        if (table == Table::kFile && below(2)) rule.filter = below(2) ? "*.x" : "*.X";
        if (table == Table::kFile && below(3) == 0) rule.scope = "D:\\s";
        bool twice = false;
        for (const Rule& other : rules) {
            twice = twice || kNames.Fold(other.name + "|" + other.filter + "|" + other.scope) ==
                                 kNames.Fold(rule.name + "|" + rule.filter + "|" + rule.scope);
        }
        if (!twice) rules.push_back(rule);
    }
    return rules;
}

TEST(RulePlan, LeadsFromAnyStateToAnyOther) {
    std::mt19937 random(20240305);
    for (int round = 0; round < 500; ++round) {
        DriverState state;
        RuleFile file;
        for (const Table table : kAllTables) {
            for (const Rule& rule : RandomRules(table, random, true)) {
                Rule nt = ModelDriver::Nt(table, rule);
                if (nt.name.empty()) nt.name = "\\Device\\HarddiskVolume9\\lost";
                state.tables[Index(table)].push_back(nt);
            }
            if (random() % 4) file.tables[Index(table)] = Wanted(table, RandomRules(table, random, false));
        }
        if (random() % 2) file.masterEnabled = random() % 2 == 0;
        if (random() % 2) file.policy = zoctl::Policy{static_cast<std::uint8_t>(random() % 2), 1};
        const Plan plan = MakePlan(file, state, kNames, false);
        ModelDriver driver(state);
        for (const Step& step : plan.steps)
            ASSERT_TRUE(driver.Send(step)) << round << ": " << DescribeStep(step);
        ASSERT_TRUE(Compare(file, driver.State(), kNames).None()) << round;
        ASSERT_TRUE(MakePlan(file, driver.State(), kNames, false).steps.empty()) << round;
        for (const Table table : kAllTables) {  // what is not managed stays
            if (!file.tables[Index(table)]) {
                ASSERT_EQ(driver.State().tables[Index(table)], state.tables[Index(table)]);
            }
        }
    }
}

TEST(RulePlan, AddsNeedTheirRemovalOnlyWhereTheDriverStillHasTheRule) {
    const Rule exe{"C:\\f", 1, 1, "*.exe"}, dll{"C:\\f", 1, 1, "*.dll"}, txt{"C:\\f", 1, 1, "*.txt"};
    DriverState state;
    for (const Rule& rule : {exe, dll})
        state.tables[1].push_back(ModelDriver::Nt(Table::kFile, rule));
    RuleFile file;
    file.tables[1] = Wanted(Table::kFile, {dll, txt});
    const Plan plan = MakePlan(file, state, kNames, false);
    ASSERT_EQ(Letters(plan.steps), "RAA");
    EXPECT_EQ(plan.steps[1].needs, 0);   // still there when the removal fails
    EXPECT_EQ(plan.steps[2].needs, -1);  // new in any case
}

// They go first, so that the tables still differ when one of them fails; but the DLL filter waits for its folders.
TEST(RulePlan, SendsWhatCannotBeReadBackOnlyWhenThereIsReasonAndThenFirst) {
    const Rule a{"C:\\a"}, b{"C:\\b"};
    DriverState held;
    held.tables[0] = {ModelDriver::Nt(Table::kProcess, a)};
    const struct {
        const char* name;
        std::vector<Rule> processes;
        std::vector<Rule> folders;
        bool dll;
        bool resend;
        const char* letters;
        const char* heldBack;
    } cases[] = {
        {"the rules are in force", {a}, {}, true, false, "", "ifgoOFD"},
        {"asked for", {a}, {}, true, true, "ifgoOFD", ""},
        {"something else is sent", {a, b}, {b}, true, false, "ifgoOFADAM", ""},
        {"the DLL filter goes off before its folders", {a, b}, {b}, false, false, "ifgoOFDAAM", ""},
    };
    for (const auto& one : cases) {
        RuleFile file;
        file.tables[Index(Table::kProcess)] = Wanted(Table::kProcess, one.processes);
        file.tables[Index(Table::kDll)] = Wanted(Table::kDll, one.folders);
        file.fileIgnore = Wanted(Table::kProcess, {b});
        file.registryIgnore = Wanted(Table::kProcess, {});
        file.overrides = {7};
        file.fileEnabled = true;
        file.dllEnabled = one.dll;
        file.masterEnabled = one.processes.size() > 1;
        const Plan plan = MakePlan(file, held, kNames, one.resend);
        EXPECT_EQ(Letters(plan.steps), one.letters) << one.name;
        EXPECT_EQ(Letters(plan.heldBack), one.heldBack) << one.name;
    }
    RuleFile onlySwitch;
    onlySwitch.dllEnabled = true;
    EXPECT_EQ(Letters(MakePlan(onlySwitch, held, kNames, false).steps), "D");
}

TEST(RemovalGuard, CallsMoreThanHalfMassRemoval) {
    const Rule a{"C:\\a"}, b{"C:\\b"}, f{"C:\\f", 1, 1}, g{"C:\\g", 0, 0, "", "C:\\s", 1, 1, 1};
    DriverState state;
    state.masterEnabled = true;
    for (const Rule& rule : {a, b, f, g})
        state.tables[1].push_back(ModelDriver::Nt(Table::kFile, rule));
    const Rule flat{"C:\\f", 1, 0}, single{"C:\\f"}, shared{"C:\\g", 0, 0, "", "C:\\s", 1, 1, 0};
    const Rule narrowScope{"C:\\g", 0, 0, "", "C:\\s", 0, 0, 1}, wide{"C:\\a", 1, 1};
    const struct {
        const char* name;
        std::vector<Rule> wanted;
        std::optional<bool> master;
        std::optional<bool> fileFilter;
        std::size_t removed;
        bool mass;
    } cases[] = {
        {"none", {a, b, f, g}, {}, {}, 0, false},
        {"just half", {a, b}, true, true, 2, false},
        {"more than half", {a}, {}, {}, 3, true},
        {"rules that only cover more", {wide, b, f, g}, {}, {}, 0, false},
        {"rules that cover less", {a, flat, shared}, {}, {}, 3, true},
        {"a folder becomes a file, a scope shrinks", {a, single, narrowScope}, {}, {}, 3, true},
        {"the file filter goes off", {a, b, f}, {}, false, 4, true},
        {"all goes off", {a, b, f, g}, false, {}, 0, true},
    };
    for (const auto& one : cases) {
        RuleFile file;
        file.tables[1] = Wanted(Table::kFile, one.wanted);
        file.masterEnabled = one.master;
        file.fileEnabled = one.fileFilter;
        const Plan plan = MakePlan(file, state, kNames, false);
        const auto removal = MeasureRemoval(plan, state, Compare(file, state, kNames));
        EXPECT_EQ(removal.removed, one.removed) << one.name;
        EXPECT_EQ(removal.IsMass(), one.mass) << one.name;
    }
}

}  // namespace
