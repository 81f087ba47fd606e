#include "rule_steps.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

std::int32_t AddFileRule(const Rule& rule, const wchar_t* name) {
    const std::wstring filter = zo::WideFromUtf8(rule.filter);
    const wchar_t* filterOrNone = filter.empty() ? nullptr : filter.c_str();
    if (!rule.scope.empty()) {
        return ZoProtector_AddFileProtectScoped(name, rule.isFolder, rule.recursive, filterOrNone,
                                                zo::WideFromUtf8(rule.scope).c_str(), rule.scopeIsFolder,
                                                rule.scopeRecursive, rule.exclusive);
    }
    return rule.isFolder ? ZoProtector_AddFileProtectByFolder(name, rule.recursive, filterOrNone)
                         : ZoProtector_AddFileProtectByPath(name);
}

struct TableExports {
    std::int32_t (*add)(const Rule& rule, const wchar_t* name);
    std::int32_t (*remove)(const wchar_t* name);
    std::int32_t (*clear)();
};

// In the order of Table.
const TableExports kTableExports[] = {
    {[](const Rule& rule, const wchar_t* name) {
         return rule.isFolder ? ZoProtector_AddProcessProtectByFolder(name, rule.recursive)
                              : ZoProtector_AddProcessProtectByPath(name);
     },
     ZoProtector_RemoveProcessProtect, ZoProtector_ClearAllProcessProtect},
    {AddFileRule, ZoProtector_RemoveFileProtect, ZoProtector_ClearAllFileProtect},
    {[](const Rule& rule, const wchar_t* name) { return ZoProtector_AddRegistryProtectByKey(name, rule.recursive); },
     ZoProtector_RemoveRegistryProtect, ZoProtector_ClearAllRegistryProtect},
    {[](const Rule& rule, const wchar_t* name) { return ZoProtector_AddDllWhitelistFolder(name, rule.recursive); },
     ZoProtector_RemoveDllWhitelistFolder, ZoProtector_ClearAllDllWhitelist},
};
static_assert(std::size(kTableExports) == kTables);

const TableExports& ExportsOf(const Step& step) {
    return kTableExports[Index(step.table)];
}

// In the order of StepKind; the name is the rule's.
constexpr std::int32_t (*kSendStep[])(const Step& step, const wchar_t* name) = {
    [](const Step& step, const wchar_t* name) { return ExportsOf(step).remove(name); },
    [](const Step& step, const wchar_t*) { return ExportsOf(step).clear(); },
    [](const Step& step, const wchar_t* name) { return ExportsOf(step).add(step.rule, name); },
    [](const Step&, const wchar_t*) { return ZoProtector_ClearAllFileIgnoreProcesses(); },
    [](const Step& step, const wchar_t* name) {
        return ZoProtector_AddFileIgnoreProcess(name, step.rule.isFolder, step.rule.recursive);
    },
    [](const Step&, const wchar_t*) { return ZoProtector_ClearAllRegistryIgnoreProcesses(); },
    [](const Step& step, const wchar_t* name) {
        return ZoProtector_AddRegistryIgnoreProcess(name, step.rule.isFolder, step.rule.recursive);
    },
    [](const Step&, const wchar_t*) { return ZoProtector_ClearAllSignatureOverrides(); },
    [](const Step& step, const wchar_t*) { return ZoProtector_AddSignatureOverride(step.pid); },
    [](const Step& step, const wchar_t*) { return ZoProtector_EnableFileProtect(step.on); },
    [](const Step& step, const wchar_t*) { return ZoProtector_EnableDllLoadFilter(step.on); },
    [](const Step& step, const wchar_t*) {
        const ZopSignaturePolicy policy{step.policy.mode, step.policy.minLevel, {}};
        return ZoProtector_SetSignaturePolicy(&policy);
    },
    [](const Step& step, const wchar_t*) { return ZoProtector_SetMasterEnabled(step.on); },
};
static_assert(std::size(kSendStep) == kStepKinds);

std::int32_t Send(const Step& step) {
    return kSendStep[static_cast<std::size_t>(step.kind)](step, zo::WideFromUtf8(step.rule.name).c_str());
}

const char* OutcomeName(Outcome outcome) {
    static constexpr const char* kNames[] = {"done", "failed", "not tried"};
    return kNames[static_cast<std::size_t>(outcome)];
}

// The list that the step works on; empty for a switch.
std::string_view ListOf(const Step& step) {
    const StepTraits& traits = TraitsOf(step.kind);
    if (traits.effect == StepEffect::kSwitches) return {};
    return traits.unreadablePart ? traits.unreadablePart : TableName(step.table);
}

// Most commands to a driver that vanished under the open handle fail without saying so; one that always works shows it.
bool IsGone(std::int32_t status) {
    if (status == ZOP_E_NOT_INITIALIZED || status == ZOP_E_DRIVER_NOT_FOUND) return true;
    std::uint32_t enabled = 0;
    return status == ZOP_E_FAILED && ZoProtector_GetMasterEnabled(&enabled) < 0;
}

}  // namespace

std::vector<StepResult> CarryOut(const std::vector<Step>& steps, const std::function<bool()>& stop) {
    std::vector<StepResult> results(steps.size());
    std::string_view torn;  // the list of which something was taken away
    std::set<std::string_view> full;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const std::string_view list = ListOf(steps[i]);
        if ((list.empty() || list != torn) && stop()) break;
        const int needs = steps[i].needs;
        if (needs >= 0 && results[static_cast<std::size_t>(needs)].outcome != Outcome::kDone) continue;
        const StepEffect effect = TraitsOf(steps[i].kind).effect;
        if (effect == StepEffect::kAdds && full.contains(list)) continue;
        results[i].status = Send(steps[i]);
        results[i].outcome = results[i].status < 0 ? Outcome::kFailed : Outcome::kDone;
        if (results[i].status < 0 && (TraitsOf(steps[i].kind).unreadablePart || IsGone(results[i].status))) break;
        if (results[i].status == ZOP_E_QUOTA_EXCEEDED && effect == StepEffect::kAdds) full.insert(list);
        const bool takenAway = effect == StepEffect::kTakesAway && results[i].status >= 0;
        if (list != torn) torn = takenAway ? list : std::string_view();
    }
    return results;
}

std::vector<FullTable> FullTables(const std::vector<Step>& steps, const std::vector<StepResult>& results) {
    std::vector<FullTable> full;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (results[i].status == ZOP_E_QUOTA_EXCEEDED) full.push_back({ListOf(steps[i])});
    }
    for (FullTable& table : full) {
        for (std::size_t i = 0; i < steps.size(); ++i) {
            const bool adds = TraitsOf(steps[i].kind).effect == StepEffect::kAdds && ListOf(steps[i]) == table.name;
            if (adds && results[i].outcome != Outcome::kDone) ++table.notAdded;
        }
    }
    return full;
}

bool LeftOutAsFull(const Step& step, const StepResult& result, const std::vector<FullTable>& full) {
    return result.outcome == Outcome::kNotTried && TraitsOf(step.kind).effect == StepEffect::kAdds &&
           std::any_of(full.begin(), full.end(), [&](const FullTable& table) { return table.name == ListOf(step); });
}

std::vector<std::string> PartsNotSent(const Plan& plan, const std::vector<StepResult>& results) {
    std::vector<std::string> parts;
    const auto add = [&parts](const Step& step) {
        const char* part = TraitsOf(step.kind).unreadablePart;
        if (part && std::find(parts.begin(), parts.end(), part) == parts.end()) parts.emplace_back(part);
    };
    for (const Step& step : plan.heldBack)
        add(step);
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        if (results[i].outcome != Outcome::kDone) add(plan.steps[i]);
    }
    return parts;
}

Json StepsJson(const std::vector<Step>& steps, const std::vector<StepResult>& results) {
    Json json = Json::array();
    for (std::size_t i = 0; i < steps.size(); ++i) {
        Json step = {{"step", DescribeStep(steps[i])}, {"outcome", OutcomeName(results[i].outcome)}};
        if (results[i].outcome == Outcome::kFailed) step["status"] = StatusJson(results[i].status);
        json.push_back(std::move(step));
    }
    return json;
}

}  // namespace zoctl
