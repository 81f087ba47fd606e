#include "rule_steps.h"

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

}  // namespace

std::vector<StepResult> CarryOut(const std::vector<Step>& steps, const std::function<bool()>& stop) {
    std::vector<StepResult> results(steps.size());
    for (std::size_t i = 0; i < steps.size() && !stop(); ++i) {
        const int needs = steps[i].needs;
        if (needs >= 0 && results[static_cast<std::size_t>(needs)].outcome != Outcome::kDone) continue;
        results[i].status = Send(steps[i]);
        results[i].outcome = results[i].status < 0 ? Outcome::kFailed : Outcome::kDone;
        if (results[i].status == ZOP_E_NOT_INITIALIZED || results[i].status == ZOP_E_DRIVER_NOT_FOUND) break;
    }
    return results;
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
