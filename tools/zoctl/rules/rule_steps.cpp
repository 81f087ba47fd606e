#include "rule_steps.h"

#include <algorithm>

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

std::int32_t AddRule(Table table, const Rule& rule, const wchar_t* name) {
    switch (table) {
        case Table::kProcess:
            return rule.isFolder ? ZoProtector_AddProcessProtectByFolder(name, rule.recursive)
                                 : ZoProtector_AddProcessProtectByPath(name);
        case Table::kFile:
            return AddFileRule(rule, name);
        case Table::kRegistry:
            return ZoProtector_AddRegistryProtectByKey(name, rule.recursive);
        case Table::kDll:
            return ZoProtector_AddDllWhitelistFolder(name, rule.recursive);
    }
    return ZOP_E_FAILED;
}

std::int32_t RemoveRule(Table table, const wchar_t* name) {
    switch (table) {
        case Table::kProcess:
            return ZoProtector_RemoveProcessProtect(name);
        case Table::kFile:
            return ZoProtector_RemoveFileProtect(name);
        case Table::kRegistry:
            return ZoProtector_RemoveRegistryProtect(name);
        case Table::kDll:
            return ZoProtector_RemoveDllWhitelistFolder(name);
    }
    return ZOP_E_FAILED;
}

std::int32_t ClearTable(Table table) {
    switch (table) {
        case Table::kProcess:
            return ZoProtector_ClearAllProcessProtect();
        case Table::kFile:
            return ZoProtector_ClearAllFileProtect();
        case Table::kRegistry:
            return ZoProtector_ClearAllRegistryProtect();
        case Table::kDll:
            return ZoProtector_ClearAllDllWhitelist();
    }
    return ZOP_E_FAILED;
}

std::int32_t Send(const Step& step) {
    const std::wstring name = zo::WideFromUtf8(step.rule.name);
    switch (step.kind) {
        case StepKind::kRemoveRule:
            return RemoveRule(step.table, name.c_str());
        case StepKind::kClearTable:
            return ClearTable(step.table);
        case StepKind::kAddRule:
            return AddRule(step.table, step.rule, name.c_str());
        case StepKind::kClearFileIgnore:
            return ZoProtector_ClearAllFileIgnoreProcesses();
        case StepKind::kAddFileIgnore:
            return ZoProtector_AddFileIgnoreProcess(name.c_str(), step.rule.isFolder, step.rule.recursive);
        case StepKind::kClearRegistryIgnore:
            return ZoProtector_ClearAllRegistryIgnoreProcesses();
        case StepKind::kAddRegistryIgnore:
            return ZoProtector_AddRegistryIgnoreProcess(name.c_str(), step.rule.isFolder, step.rule.recursive);
        case StepKind::kClearOverrides:
            return ZoProtector_ClearAllSignatureOverrides();
        case StepKind::kAddOverride:
            return ZoProtector_AddSignatureOverride(step.pid);
        case StepKind::kSwitchFile:
            return ZoProtector_EnableFileProtect(step.on ? 1 : 0);
        case StepKind::kSwitchDll:
            return ZoProtector_EnableDllLoadFilter(step.on ? 1 : 0);
        case StepKind::kSetPolicy: {
            const ZopSignaturePolicy policy{step.policy.mode, step.policy.minLevel, {}};
            return ZoProtector_SetSignaturePolicy(&policy);
        }
        case StepKind::kSwitchMaster:
            return ZoProtector_SetMasterEnabled(step.on ? 1 : 0);
    }
    return ZOP_E_FAILED;
}

const char* OutcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::kDone:
            return "done";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kNotTried:
            return "not tried";
    }
    return "";
}

// The list that the step works on; empty for a switch.
std::string_view ListOf(const Step& step) {
    switch (step.kind) {
        case StepKind::kSwitchFile:
        case StepKind::kSwitchDll:
        case StepKind::kSetPolicy:
        case StepKind::kSwitchMaster:
            return {};
        default:
            const char* part = UnreadablePart(step.kind);
            return part ? part : TableName(step.table);
    }
}

bool TakesAway(StepKind kind) {
    return kind == StepKind::kRemoveRule || kind == StepKind::kClearTable || kind == StepKind::kClearFileIgnore ||
           kind == StepKind::kClearRegistryIgnore || kind == StepKind::kClearOverrides;
}

// Most commands to a driver that vanished under the open handle fail without saying so; then one that always works
// tells.
bool IsGone(std::int32_t status) {
    if (status == ZOP_E_NOT_INITIALIZED || status == ZOP_E_DRIVER_NOT_FOUND) return true;
    std::uint32_t enabled = 0;
    return status == ZOP_E_FAILED && ZoProtector_GetMasterEnabled(&enabled) < 0;
}

}  // namespace

std::vector<StepResult> CarryOut(const std::vector<Step>& steps, const std::function<bool()>& stop) {
    std::vector<StepResult> results(steps.size());
    std::string_view torn;  // the list of which something was taken away
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const std::string_view list = ListOf(steps[i]);
        if ((list.empty() || list != torn) && stop()) break;
        const int needs = steps[i].needs;
        if (needs >= 0 && results[static_cast<std::size_t>(needs)].outcome != Outcome::kDone) continue;
        results[i].status = Send(steps[i]);
        results[i].outcome = results[i].status < 0 ? Outcome::kFailed : Outcome::kDone;
        if (results[i].status < 0 && (UnreadablePart(steps[i].kind) || IsGone(results[i].status))) break;
        if (list != torn) torn = TakesAway(steps[i].kind) && results[i].status >= 0 ? list : std::string_view();
    }
    return results;
}

std::vector<std::string> PartsNotSent(const Plan& plan, const std::vector<StepResult>& results) {
    std::vector<std::string> parts;
    const auto add = [&parts](const Step& step) {
        const char* part = UnreadablePart(step.kind);
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
