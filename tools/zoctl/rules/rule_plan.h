#pragma once

// From what is wanted and what the driver holds to the commands that lead from one to the other. Pure: nothing here
// talks to a driver.
//
// A rule is removed by its path, and the driver then drops every rule of that path; so a path with one unwanted rule is
// removed and its wanted rules are added again. A table is emptied by one command when that is cheaper, or when it
// holds an unwanted rule that no Win32 name leads to.

#include <array>
#include <string>
#include <vector>

#include "rule_file.h"
#include "rule_set.h"

namespace zoctl {

// One rule that wants and has in the same place, with other flags.
struct ChangedRule {
    WantedRule wanted;
    Rule actual;
};

struct TableDifference {
    bool managed = false;  // the file says what the table is to hold
    std::vector<WantedRule> missing;
    std::vector<Rule> surplus;      // NT names
    std::vector<Rule> onlyByClear;  // those of surplus and changed that no Win32 name leads to
    std::vector<ChangedRule> changed;
    std::size_t inForce = 0;

    [[nodiscard]] bool None() const { return missing.empty() && surplus.empty() && changed.empty(); }
};

struct Difference {
    std::array<TableDifference, kTables> tables;
    bool masterDiffers = false;
    bool policyDiffers = false;

    [[nodiscard]] bool None() const;
};

[[nodiscard]] Difference Compare(const RuleFile& wanted, const DriverState& actual, const NameForms& names);

enum class StepKind {
    kRemoveRule,  // of a table
    kClearTable,
    kAddRule,
    kClearFileIgnore,
    kAddFileIgnore,
    kClearRegistryIgnore,
    kAddRegistryIgnore,
    kClearOverrides,
    kAddOverride,
    kSwitchFile,
    kSwitchDll,
    kSetPolicy,
    kSwitchMaster,
};
inline constexpr std::size_t kStepKinds = static_cast<std::size_t>(StepKind::kSwitchMaster) + 1;

struct Step {
    StepKind kind;
    Table table = Table::kProcess;
    Rule rule = {};  // Win32 names
    bool on = false;
    Policy policy = {};
    std::uint32_t pid = 0;
    // The step whose failure makes this one senseless: a rule that was not removed need not be added again.
    int needs = -1;
};

enum class StepEffect { kTakesAway, kAdds, kSwitches };

// What is the same for all steps of a kind.
struct StepTraits {
    const char* unreadablePart;  // the part of the file, when it cannot be read back ("file.ignore"); else null
    StepEffect effect;           // on a list of the driver, unless it switches something
    std::string (*describe)(const Step&);
};

[[nodiscard]] const StepTraits& TraitsOf(StepKind kind);
[[nodiscard]] inline std::string DescribeStep(const Step& step) {
    return TraitsOf(step.kind).describe(step);
}

// What the driver cannot be asked for is sent whenever something else is, and when nothing that can be asked for shows
// that the file was applied before; a second application of the same file thus sends nothing. resend sends it always.
//
// It goes before what can be read back. If it fails half-way, the rest is left and the tables still differ, which is
// what makes the next application send it again. Only switching the DLL load filter on waits for the filter's folders:
// without them modules would be refused.
struct Plan {
    std::vector<Step> steps;
    std::vector<Step> heldBack;  // steps that cannot be read back and are not sent
};

[[nodiscard]] Plan MakePlan(const RuleFile& wanted, const DriverState& actual, const NameForms& names, bool resend);

// Whether the plan would take away more than half of the process, file and registry rules, or switch the whole
// protection off: more likely a mistake than a wish. A rule that loses a flag counts as taken away, for it then covers
// less; and every file rule does when the file filter is switched off.
struct Removal {
    std::size_t removed = 0;  // rules that protect now and no longer would, or less
    std::size_t of = 0;
    bool switchesOff = false;

    [[nodiscard]] bool IsMass() const { return switchesOff || removed * 2 > of; }
};

[[nodiscard]] Removal MeasureRemoval(const Plan& plan, const DriverState& actual, const Difference& difference);

}  // namespace zoctl
