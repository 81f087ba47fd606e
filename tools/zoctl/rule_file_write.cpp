#include "format.h"
#include "rule_file.h"

namespace zoctl {

namespace {

using Json = nlohmann::ordered_json;

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
    if (!rule.scope.empty()) {
        Json& scope = json["scope"];
        scope[rule.scopeIsFolder ? "folder" : "path"] = rule.scope;
        if (rule.scopeRecursive) scope["recursive"] = FlagJson(rule.scopeRecursive);
        if (rule.exclusive) json["exclusive"] = FlagJson(rule.exclusive);
    }
    return json;
}

Json WriteRuleFile(const DriverState& state, const NameForms& names, std::vector<std::string>& leftOut) {
    Json file = {{"version", kRuleFileVersion}, {"master", {{"enabled", state.masterEnabled}}}};
    for (const Table table : kAllTables) {
        Json rules = Json::array();
        for (Rule rule : state.tables[Index(table)]) {
            const Rule held = rule;
            rule.name = table == Table::kRegistry ? FromNtKey(rule.name) : names.FromNtPath(rule.name);
            if (!rule.scope.empty()) rule.scope = names.FromNtPath(rule.scope);
            if (rule.name.empty() || (rule.scope.empty() && !held.scope.empty())) {
                leftOut.push_back(zo::Format("{}: {} has no Win32 name", TableName(table), DescribeRule(table, held)));
                continue;
            }
            rules.push_back(RuleJson(table, rule));
        }
        file[TableName(table)] = {{table == Table::kDll ? "folders" : "rules", std::move(rules)}};
    }
    file["signature"] = {{"policy", {{"mode", state.policy.mode}, {"minLevel", state.policy.minLevel}}}};
    return file;
}

}  // namespace zoctl
