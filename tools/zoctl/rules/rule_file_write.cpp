#include "format.h"
#include "rule_file.h"

namespace zoctl {

namespace {

// Drivers keep the byte; most are 0 or 1, which people write as false and true.
Json FlagJson(std::uint8_t flag) {
    return flag > 1 ? Json(flag) : Json(flag == 1);
}

}  // namespace

Json RuleJson(Table table, const Rule& rule) {
    Json json = Json::object();
    json[table == Table::kRegistry ? "key" : rule.isFolder ? "folder" : "path"] = rule.name;
    if (rule.recursive) json["recursive"] = FlagJson(rule.recursive);
    if (!rule.filter.empty()) json["filter"] = rule.filter;
    if (rule.HasScope()) {
        Json& scope = json["scope"];
        scope[rule.scopeIsFolder ? "folder" : "path"] = rule.scope;
        if (rule.scopeRecursive) scope["recursive"] = FlagJson(rule.scopeRecursive);
    }
    if (rule.exclusive) json["exclusive"] = FlagJson(rule.exclusive);
    return json;
}

namespace {

const char* ListName(Table table) {
    return table == Table::kDll ? "folders" : "rules";
}

// Whether a file that asks for the rule gets just what the driver holds: a driver may hold flags that the library never
// sends together, and names that do not survive the way through a file.
bool CanBeAskedFor(Table table, const Json& rule, const Rule& held, const NameForms& names) {
    const Json file = {{"version", kRuleFileVersion}, {TableName(table), {{ListName(table), Json::array({rule})}}}};
    std::vector<Mistake> mistakes;
    const RuleFile read = ReadRuleFile(file.dump(-1, ' ', false, Json::error_handler_t::replace), names, mistakes);
    if (!mistakes.empty()) return false;
    const Rule& asked = read.tables[Index(table)]->front().nt;
    return SameFlags(asked, held) && names.Fold(asked.name) == names.Fold(held.name) && asked.filter == held.filter &&
           names.Fold(asked.scope) == names.Fold(held.scope);
}

}  // namespace

Json WriteRuleFile(const DriverState& state, const NameForms& names, std::vector<std::string>& leftOut) {
    Json file = {{"version", kRuleFileVersion}, {"master", {{"enabled", state.masterEnabled}}}};
    for (const Table table : kAllTables) {
        Json rules = Json::array();
        for (Rule rule : state.tables[Index(table)]) {
            const Rule held = rule;
            rule.name = Win32Name(table, rule.name, names);
            if (!rule.scope.empty()) rule.scope = names.FromNtPath(rule.scope);
            if (rule.name.empty() || (rule.scope.empty() && !held.scope.empty())) {
                leftOut.push_back(zo::Format("{}: {} has no Win32 name", TableName(table), DescribeRule(table, held)));
                continue;
            }
            Json json = RuleJson(table, rule);
            if (CanBeAskedFor(table, json, held, names)) {
                rules.push_back(std::move(json));
            } else {
                leftOut.push_back(zo::Format("{}: {} cannot be expressed in a rule file", TableName(table),
                                             DescribeRule(table, held)));
            }
        }
        file[TableName(table)] = {{ListName(table), std::move(rules)}};
    }
    file["signature"] = {{"policy", {{"mode", state.policy.mode}, {"minLevel", state.policy.minLevel}}}};
    return file;
}

}  // namespace zoctl
