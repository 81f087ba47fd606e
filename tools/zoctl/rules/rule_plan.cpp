#include "rule_plan.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "format.h"
#include "text_table.h"

namespace zoctl {

namespace {

// What makes two rules the same for the driver, in folded NT names.
using Identity = std::array<std::string, 3>;

Identity IdentityOf(const Rule& rule, const NameForms& names) {
    return {names.Fold(rule.name), names.Fold(rule.filter), names.Fold(rule.scope)};
}

// The names to remove rules by: the file's own spelling where it names the path too, else what leads back to it.
class RemovalNames {
  public:
    RemovalNames(Table table, const WantedRules& wanted, const NameForms& names) : table_(table), names_(names) {
        for (const WantedRule& rule : wanted)
            given_.emplace(names.Fold(rule.nt.name), rule.given.name);
    }

    // "" when there is none.
    [[nodiscard]] std::string Of(const std::string& nt) const {
        const auto found = given_.find(names_.Fold(nt));
        if (found != given_.end()) return found->second;
        return Win32Name(table_, nt, names_);
    }

  private:
    Table table_;
    const NameForms& names_;
    std::map<std::string, std::string> given_;
};

TableDifference CompareTable(Table table, const WantedRules& wanted, const std::vector<Rule>& actual,
                             const NameForms& names) {
    TableDifference difference;
    difference.managed = true;
    std::map<Identity, const Rule*> held;
    for (const Rule& rule : actual)
        held.emplace(IdentityOf(rule, names), &rule);
    std::set<Identity> asked;
    for (const WantedRule& rule : wanted) {
        const Identity identity = IdentityOf(rule.nt, names);
        asked.insert(identity);
        const auto found = held.find(identity);
        if (found == held.end()) {
            difference.missing.push_back(rule);
        } else if (SameFlags(rule.nt, *found->second)) {
            ++difference.inForce;
        } else {
            difference.changed.push_back({rule, *found->second});
        }
    }
    for (const auto& [identity, rule] : held) {
        if (!asked.contains(identity)) difference.surplus.push_back(*rule);
    }
    const RemovalNames removal(table, wanted, names);
    for (const Rule& rule : difference.surplus) {
        if (removal.Of(rule.name).empty()) difference.onlyByClear.push_back(rule);
    }
    return difference;
}

Step RuleStep(StepKind kind, Table table, Rule rule, int needs = -1) {
    Step step{kind, table};
    step.rule = std::move(rule);
    step.needs = needs;
    return step;
}

std::set<std::string> Pointers(const std::vector<WantedRule>& rules) {
    std::set<std::string> pointers;
    for (const WantedRule& rule : rules)
        pointers.insert(rule.pointer);
    return pointers;
}

// Path by path: remove where something is not wanted, add what is then missing. Steps are numbered from first on.
std::vector<Step> StepsByPath(Table table, const WantedRules& wanted, const TableDifference& difference,
                              const NameForms& names, int first) {
    std::vector<Step> steps;
    const RemovalNames removal(table, wanted, names);
    std::map<std::string, int> removedBy;  // folded NT name to the step
    const auto remove = [&](const Rule& actual) {
        const auto [entry, added] = removedBy.emplace(names.Fold(actual.name), first + static_cast<int>(steps.size()));
        if (!added) return;
        Rule rule = actual;
        rule.name = removal.Of(actual.name);
        steps.push_back(RuleStep(StepKind::kRemoveRule, table, std::move(rule)));
    };
    for (const Rule& rule : difference.surplus)
        remove(rule);
    for (const ChangedRule& rule : difference.changed)
        remove(rule.actual);
    const std::set<std::string> missing = Pointers(difference.missing);
    for (const WantedRule& rule : wanted) {
        const auto removed = removedBy.find(names.Fold(rule.nt.name));
        if (missing.contains(rule.pointer)) {
            steps.push_back(RuleStep(StepKind::kAddRule, table, rule.given));
        } else if (removed != removedBy.end()) {
            steps.push_back(RuleStep(StepKind::kAddRule, table, rule.given, removed->second));
        }
    }
    return steps;
}

std::vector<Step> StepsByClear(Table table, const WantedRules& wanted, const TableDifference& difference, int first) {
    std::vector<Step> steps = {Step{StepKind::kClearTable, table}};
    const std::set<std::string> missing = Pointers(difference.missing);
    for (const WantedRule& rule : wanted) {
        const int needs = missing.contains(rule.pointer) ? -1 : first;
        steps.push_back(RuleStep(StepKind::kAddRule, table, rule.given, needs));
    }
    return steps;
}

void PlanTable(Table table, const WantedRules& wanted, const TableDifference& difference, const NameForms& names,
               std::vector<Step>& steps) {
    const int first = static_cast<int>(steps.size());
    std::vector<Step> byPath = StepsByPath(table, wanted, difference, names, first);
    std::vector<Step> byClear = StepsByClear(table, wanted, difference, first);
    const bool clear = !difference.onlyByClear.empty() || byClear.size() < byPath.size();
    std::vector<Step>& cheaper = clear ? byClear : byPath;
    steps.insert(steps.end(), std::make_move_iterator(cheaper.begin()), std::make_move_iterator(cheaper.end()));
}

void PlanIgnoreList(const std::optional<WantedRules>& wanted, StepKind clear, StepKind add, std::vector<Step>& steps) {
    if (!wanted) return;
    steps.push_back(Step{clear});
    for (const WantedRule& rule : *wanted)
        steps.push_back(RuleStep(add, Table::kProcess, rule.given));
}

void PlanSwitch(StepKind kind, const std::optional<bool>& on, std::vector<Step>& steps) {
    if (!on) return;
    Step step{kind};
    step.on = *on;
    steps.push_back(step);
}

// All but switching the DLL load filter on. None of these steps needs another: all that follow a failure are left out.
void PlanUnreadable(const RuleFile& wanted, std::vector<Step>& steps) {
    PlanIgnoreList(wanted.fileIgnore, StepKind::kClearFileIgnore, StepKind::kAddFileIgnore, steps);
    PlanIgnoreList(wanted.registryIgnore, StepKind::kClearRegistryIgnore, StepKind::kAddRegistryIgnore, steps);
    if (wanted.overrides) {
        steps.push_back(Step{StepKind::kClearOverrides});
        for (const std::uint32_t pid : *wanted.overrides) {
            Step step{StepKind::kAddOverride};
            step.pid = pid;
            steps.push_back(step);
        }
    }
    PlanSwitch(StepKind::kSwitchFile, wanted.fileEnabled, steps);
    if (wanted.dllEnabled == false) PlanSwitch(StepKind::kSwitchDll, wanted.dllEnabled, steps);
}

bool Narrows(const ChangedRule& rule) {
    const Rule& from = rule.actual;
    const Rule& to = rule.wanted.nt;
    return (from.isFolder && !to.isFolder) || (from.recursive && !to.recursive) ||
           (from.scopeIsFolder && !to.scopeIsFolder) || (from.scopeRecursive && !to.scopeRecursive) ||
           (from.exclusive && !to.exclusive);
}

bool SomethingReadableIsInForce(const Difference& difference) {
    return std::any_of(difference.tables.begin(), difference.tables.end(),
                       [](const TableDifference& table) { return table.inForce > 0; });
}

}  // namespace

bool Difference::None() const {
    const auto none = [](const TableDifference& table) { return table.None(); };
    return std::all_of(tables.begin(), tables.end(), none) && !masterDiffers && !policyDiffers;
}

Difference Compare(const RuleFile& wanted, const DriverState& actual, const NameForms& names) {
    Difference difference;
    for (const Table table : kAllTables) {
        const auto& rules = wanted.tables[Index(table)];
        if (rules) difference.tables[Index(table)] = CompareTable(table, *rules, actual.tables[Index(table)], names);
    }
    difference.masterDiffers = wanted.masterEnabled && *wanted.masterEnabled != actual.masterEnabled;
    difference.policyDiffers = wanted.policy && *wanted.policy != actual.policy;
    return difference;
}

Plan MakePlan(const RuleFile& wanted, const DriverState& actual, const NameForms& names, bool resend) {
    const Difference difference = Compare(wanted, actual, names);
    Plan plan;
    const bool send = resend || !difference.None() || !SomethingReadableIsInForce(difference);
    std::vector<Step>& unreadable = send ? plan.steps : plan.heldBack;
    const auto planTable = [&](Table table) {
        const auto& rules = wanted.tables[Index(table)];
        if (rules) PlanTable(table, *rules, difference.tables[Index(table)], names, plan.steps);
    };
    PlanUnreadable(wanted, unreadable);
    planTable(Table::kDll);
    if (wanted.dllEnabled == true) PlanSwitch(StepKind::kSwitchDll, wanted.dllEnabled, unreadable);
    for (const Table table : {Table::kProcess, Table::kFile, Table::kRegistry})
        planTable(table);
    if (difference.policyDiffers) {
        Step step{StepKind::kSetPolicy};
        step.policy = *wanted.policy;
        plan.steps.push_back(step);
    }
    if (difference.masterDiffers) PlanSwitch(StepKind::kSwitchMaster, wanted.masterEnabled, plan.steps);
    return plan;
}

Removal MeasureRemoval(const Plan& plan, const DriverState& actual, const Difference& difference) {
    const auto switchesOff = [&plan](StepKind kind) {
        return std::any_of(plan.steps.begin(), plan.steps.end(),
                           [kind](const Step& step) { return step.kind == kind && !step.on; });
    };
    Removal removal;
    // The DLL folders are permissions: taking one away does not lessen the protection.
    for (const Table table : {Table::kProcess, Table::kFile, Table::kRegistry}) {
        const std::size_t held = actual.tables[Index(table)].size();
        const TableDifference& one = difference.tables[Index(table)];
        const auto narrowed = static_cast<std::size_t>(std::count_if(one.changed.begin(), one.changed.end(), Narrows));
        removal.of += held;
        removal.removed +=
            table == Table::kFile && switchesOff(StepKind::kSwitchFile) ? held : one.surplus.size() + narrowed;
    }
    removal.switchesOff = switchesOff(StepKind::kSwitchMaster);
    return removal;
}

namespace {

const char* OnOff(const Step& step) {
    return step.on ? "on" : "off";
}

// In the order of StepKind.
constexpr StepTraits kStepTraits[] = {
    {nullptr, StepEffect::kTakesAway,
     [](const Step& step) {
         return zo::Format("remove all {} rules of '{}'", TableName(step.table), EscapeControls(step.rule.name));
     }},
    {nullptr, StepEffect::kTakesAway,
     [](const Step& step) { return zo::Format("clear the {} table", TableName(step.table)); }},
    {nullptr, StepEffect::kAdds,
     [](const Step& step) {
         return zo::Format("add {} rule: {}", TableName(step.table), DescribeRule(step.table, step.rule));
     }},
    {"file.ignore", StepEffect::kTakesAway,
     [](const Step&) -> std::string { return "clear the file filter's ignore list"; }},
    {"file.ignore", StepEffect::kAdds,
     [](const Step& step) { return "file filter ignores " + DescribeRule(Table::kFile, step.rule); }},
    {"registry.ignore", StepEffect::kTakesAway,
     [](const Step&) -> std::string { return "clear the registry filter's ignore list"; }},
    {"registry.ignore", StepEffect::kAdds,
     [](const Step& step) { return "registry filter ignores " + DescribeRule(Table::kFile, step.rule); }},
    {"signature.overrides", StepEffect::kTakesAway,
     [](const Step&) -> std::string { return "clear the signature overrides"; }},
    {"signature.overrides", StepEffect::kAdds,
     [](const Step& step) { return zo::Format("signature override for process {}", step.pid); }},
    {"file.enabled", StepEffect::kSwitches,
     [](const Step& step) { return zo::Format("switch the file filter {}", OnOff(step)); }},
    {"dll.enabled", StepEffect::kSwitches,
     [](const Step& step) { return zo::Format("switch the DLL load filter {}", OnOff(step)); }},
    {nullptr, StepEffect::kSwitches,
     [](const Step& step) {
         return zo::Format("set the signature policy to mode {}, minimum level {}", step.policy.mode,
                           step.policy.minLevel);
     }},
    {nullptr, StepEffect::kSwitches, [](const Step& step) { return zo::Format("switch protection {}", OnOff(step)); }},
};
static_assert(std::size(kStepTraits) == kStepKinds);

}  // namespace

const StepTraits& TraitsOf(StepKind kind) {
    return kStepTraits[static_cast<std::size_t>(kind)];
}

}  // namespace zoctl
