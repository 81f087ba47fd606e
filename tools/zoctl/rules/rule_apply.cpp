#include "rule_apply.h"

#include <windows.h>
#include <algorithm>

#include "console.h"
#include "driver_tables.h"
#include "format.h"
#include "rule_report.h"
#include "rule_steps.h"

namespace zoctl {

namespace {

// A table that is full may lack thousands of rules, which the file names anyway.
constexpr std::size_t kShownWhenFull = 5;

// One application: what was planned, what came of it, and the document's facts.
class Application {
  public:
    Application(Output& out, const RuleFile& file, const NameForms& names, const ApplyOptions& options)
        : out_(out), file_(file), names_(names), options_(options) {}

    int Run();

  private:
    int RefuseMassRemoval(const Removal& removal);
    int ShowOnly(bool massRemoval);
    int CarryOutAndReadBack();
    int ReadBack();
    int TellHeld(const Difference& difference, const DriverState& state);
    void TellSteps(const char* notTried);
    void AddSteps();
    [[nodiscard]] std::string NextTime() const;
    [[nodiscard]] std::ptrdiff_t Count(Outcome outcome) const;

    Output& out_;
    const RuleFile& file_;
    const NameForms& names_;
    const ApplyOptions& options_;
    Plan plan_;
    std::vector<StepResult> results_;
    Json facts_;
};

std::string Joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : ", ") + part;
    return text;
}

Subject SubjectOf(const Step& step) {
    if (step.kind == StepKind::kAddOverride) return Subject::kOverride;
    if (TraitsOf(step.kind).unreadablePart) return Subject::kExempt;
    return step.table == Table::kRegistry ? Subject::kKey : Subject::kRule;
}

// "All 3 rules of the file are "
std::string RulesAre(std::size_t count) {
    return count == 1 ? std::string("The rule of the file is ") : zo::Format("All {} rules of the file are ", count);
}

std::string NotAdded(const FullTable& table) {
    return table.notAdded == 1 ? std::string("1 rule was not added.")
                               : zo::Format("{} rules were not added.", table.notAdded);
}

int Application::Run() {
    DriverState state;
    if (const Ended ended = LoadDriverState(out_, state)) return *ended;
    const Difference before = Compare(file_, state, names_);
    plan_ = MakePlan(file_, state, names_, options_.resend);
    results_.resize(plan_.steps.size());
    const Removal removal = MeasureRemoval(plan_, state, before);
    facts_ = {{"file", options_.file},
              {"unreadable", !plan_.heldBack.empty() ? "held back"
                             : file_.HasUnreadable() ? "sent"
                                                     : "none"},
              {"massRemoval", removal.IsMass()}};
    if (options_.dryRun) return ShowOnly(removal.IsMass());
    if (removal.IsMass() && !options_.allowMassRemoval) return RefuseMassRemoval(removal);
    return CarryOutAndReadBack();
}

int Application::RefuseMassRemoval(const Removal& removal) {
    AddSteps();
    return out_.Refuse(
        kExitFailed,
        removal.switchesOff
            ? std::string("The file switches all protection off.")
            : zo::Format("The file would remove, narrow or switch off {} of the {} rules that protect now.",
                         removal.removed, removal.of),
        "Nothing was sent. Look at \"zoctl rules diff\"; if this is intended, add --allow-mass-removal.", facts_);
}

int Application::ShowOnly(bool massRemoval) {
    TellSteps("would send ");
    if (massRemoval && !options_.allowMassRemoval) {
        out_.Hint("Without --allow-mass-removal none of them is sent: they would remove most of the protection.");
    }
    AddSteps();
    return out_.Done(Counted(plan_.steps.size(), "command") + " would be sent.", facts_);
}

int Application::CarryOutAndReadBack() {
    bool cancelled = false;
    {
        const Cancellation cancellation;
        results_ = CarryOut(plan_.steps, [&] { return cancelled = cancellation.Requested(); });
    }
    TellSteps("not tried  ");
    AddSteps();
    if (cancelled) return out_.Refuse(kExitCancelled, "Cancelled half-way.", NextTime(), facts_);
    return ReadBack();
}

void Application::TellSteps(const char* notTried) {
    const std::vector<FullTable> full = FullTables(plan_.steps, results_);
    for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
        if (LeftOutAsFull(plan_.steps[i], results_[i], full)) continue;
        const std::string step = DescribeStep(plan_.steps[i]);
        switch (results_[i].outcome) {
            case Outcome::kDone:
                out_.Text(zo::Format("done       {}\n", step));
                break;
            case Outcome::kNotTried:
                out_.Text(zo::Format("{}{}\n", notTried, step));
                break;
            case Outcome::kFailed: {
                const StatusText status = FullStatusText(results_[i].status, SubjectOf(plan_.steps[i]));
                out_.Text(zo::Format("FAILED     {}: {} {}\n", step, status.name, status.value));
                out_.Hint(zo::Format("zoctl {}: could not {}: {}\n  Next: {}", out_.Command(), step, status.meaning,
                                     status.advice));
                break;
            }
        }
    }
    for (const FullTable& table : full)
        out_.Text(zo::Format("{}: the driver's table is full; {}\n", table.name, NotAdded(table)));
    if (!plan_.heldBack.empty()) {
        out_.Hint(zo::Format(
            "{} Not sent, because everything that can be read already matches the file: {}; --resend sends them.",
            kUnreadableNote, Joined(PartsNotSent(plan_, results_))));
    }
}

void Application::AddSteps() {
    facts_["steps"] = StepsJson(plan_.steps, results_);
    facts_["notSent"] = PartsNotSent(plan_, results_);
    Json full = Json::array();
    for (const FullTable& table : FullTables(plan_.steps, results_))
        full.push_back({{"table", std::string(table.name)}, {"notAdded", table.notAdded}});
    facts_["fullTables"] = std::move(full);
}

// When only parts are missing that cannot be read back, the tables may no longer differ, so --resend is needed.
std::string Application::NextTime() const {
    const std::vector<std::string> parts = PartsNotSent(plan_, results_);
    if (parts.empty()) return "Apply the file again; then only what is missing is sent.";
    return zo::Format("Apply the file again with --resend: {} cannot be read back, and not all of it was sent.",
                      Joined(parts));
}

std::ptrdiff_t Application::Count(Outcome outcome) const {
    return std::count_if(results_.begin(), results_.end(),
                         [outcome](const StepResult& result) { return result.outcome == outcome; });
}

// After the steps: what does the driver hold now?
int Application::ReadBack() {
    DriverState state;
    std::string what;
    if (const std::int32_t status = ReadDriverState(state, what); status < 0) {
        out_.Hint(NextTime());
        return out_.Fail(status, Subject::kAny, what + " back", facts_);
    }
    const Difference difference = Compare(file_, state, names_);
    facts_["difference"] = DifferenceJson(difference, file_, state);
    const std::ptrdiff_t done = Count(Outcome::kDone);
    const std::size_t idle = file_.fileEnabled == false ? difference.tables[Index(Table::kFile)].inForce : 0;
    facts_["held"] = InForceCount(difference);
    facts_["inForce"] = state.masterEnabled ? InForceCount(difference) - idle : 0;
    facts_["protection"] = state.masterEnabled;
    if (difference.None() && done == static_cast<std::ptrdiff_t>(results_.size())) return TellHeld(difference, state);
    const bool full = !FullTables(plan_.steps, results_).empty();
    out_.Text(DifferenceText(difference, file_, state, full ? kShownWhenFull : kAllMissing));
    return out_.Refuse(
        full ? kExitFull : kExitNotInForce,
        zo::Format("The driver does not fully match the file: steps done: {} of {}, failed: {}, not tried: {}.", done,
                   results_.size(), Count(Outcome::kFailed), Count(Outcome::kNotTried)),
        (full ? "Take rules out of the file, or cover several with one folder rule: a table is full. "
              : "Fix the failures listed above. ") +
            NextTime(),
        facts_);
}

// A rule is enforced only while its switch is on.
int Application::TellHeld(const Difference& difference, const DriverState& state) {
    const std::size_t held = InForceCount(difference);
    const std::string sentence = Counted(results_.size(), "command") + " sent. " + RulesAre(held);
    if (!state.masterEnabled && !file_.masterEnabled && held) {
        return out_.Refuse(kExitNotInForce, sentence + "held but not in force, because protection is switched off.",
                           "Switch it on with \"zoctl enable\".", facts_);
    }
    if (!state.masterEnabled) return out_.Done(sentence + "held, with all protection switched off.", facts_);
    if (file_.Count(Table::kFile) && !file_.fileEnabled) {
        out_.Hint(
            "The file does not say whether the file filter is on (\"enabled\" of \"file\"), and that cannot be read "
            "back; "
            "\"zoctl file enable\" switches it on.");
    }
    if (file_.Count(Table::kFile) && file_.fileEnabled == false) {
        return out_.Done(sentence + "held, those for files with the file filter switched off.", facts_);
    }
    return out_.Done(sentence + "in force, read back from the driver.", facts_);
}

}  // namespace

int ApplyRules(Output& out, const RuleFile& file, const NameForms& names, const ApplyOptions& options) {
    return Application(out, file, names, options).Run();
}

}  // namespace zoctl
