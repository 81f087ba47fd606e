#include "rule_report.h"

#include <algorithm>
#include <span>

#include "format.h"

namespace zoctl {

namespace {

std::string FlagText(std::uint8_t flag) {
    return flag == 0 ? "no" : flag == 1 ? "yes" : zo::Format("yes ({})", flag);
}

// The name to show for one of the driver's.
std::string ShownName(Table table, const std::string& name, const NameForms& names, bool nt) {
    const std::string win32 = nt ? std::string() : Win32Name(table, name, names);
    return win32.empty() ? name : win32;
}

std::string ScopeText(const Rule& rule, const NameForms& names, bool nt) {
    if (!rule.HasScope()) return {};
    std::string text =
        zo::Format("{} {}", rule.scopeIsFolder ? "folder" : "file", ShownName(Table::kFile, rule.scope, names, nt));
    if (rule.scopeRecursive) text += ", recursive";
    return text;
}

bool OnlyByClear(const TableDifference& table, const Rule& rule) {
    return std::find(table.onlyByClear.begin(), table.onlyByClear.end(), rule) != table.onlyByClear.end();
}

Json TableDifferenceJson(Table table, const TableDifference& difference) {
    Json missing = Json::array();
    for (const WantedRule& rule : difference.missing) {
        missing.push_back(
            {{"pointer", rule.pointer}, {"rule", RuleJson(table, rule.given)}, {"nt", RuleJson(table, rule.nt)}});
    }
    Json surplus = Json::array();
    for (const Rule& rule : difference.surplus) {
        surplus.push_back({{"nt", RuleJson(table, rule)}, {"onlyByClear", OnlyByClear(difference, rule)}});
    }
    Json changed = Json::array();
    for (const ChangedRule& rule : difference.changed) {
        changed.push_back({{"pointer", rule.wanted.pointer},
                           {"wanted", RuleJson(table, rule.wanted.nt)},
                           {"held", RuleJson(table, rule.actual)}});
    }
    return {{"inForce", difference.inForce}, {"missing", missing}, {"surplus", surplus}, {"changed", changed}};
}

}  // namespace

TextTable RuleTable(Table table, const std::vector<Rule>& rules, const NameForms& names, bool nt) {
    const auto any = [&rules](auto uses) { return std::any_of(rules.begin(), rules.end(), uses); };
    const bool filter = any([](const Rule& rule) { return !rule.filter.empty(); });
    const bool scope = any([](const Rule& rule) { return rule.HasScope() || rule.exclusive; });
    std::vector<std::string> headings = {"KIND", "RECURSIVE",
                                         table == Table::kRegistry ? "KEY"
                                         : nt                      ? "NT PATH"
                                                                   : "PATH"};
    if (filter) headings.emplace_back("FILTER");
    if (scope) headings.insert(headings.end(), {"SCOPE", "EXCLUSIVE"});
    TextTable text(std::move(headings));
    for (const Rule& rule : rules) {
        std::vector<std::string> cells = {KindName(table, rule), FlagText(rule.recursive),
                                          ShownName(table, rule.name, names, nt)};
        if (filter) cells.push_back(rule.filter);
        if (scope) cells.insert(cells.end(), {ScopeText(rule, names, nt), FlagText(rule.exclusive)});
        text.Add(std::move(cells));
    }
    return text;
}

Json TableJson(Table table, const std::vector<Rule>& rules, const NameForms& names) {
    Json list = Json::array();
    for (const Rule& rule : rules) {
        Json one = {{"nt", RuleJson(table, rule)}, {"win32", TextOrNull(Win32Name(table, rule.name, names))}};
        if (rule.HasScope()) one["win32Scope"] = TextOrNull(names.FromNtPath(rule.scope));
        list.push_back(std::move(one));
    }
    return {{"rules", list}};
}

std::string DifferenceText(const Difference& difference, const RuleFile& file, const DriverState& state,
                           std::size_t most) {
    std::string text;
    for (const Table table : kAllTables) {
        const TableDifference& one = difference.tables[Index(table)];
        const char* name = TableName(table);
        if (!one.managed) {
            text += zo::Format("{}: not managed by the file\n", name);
            continue;
        }
        text += zo::Format("{}: {} in force, {} missing, {} extra, {} different\n", name, one.inForce,
                           one.missing.size(), one.surplus.size(), one.changed.size());
        const std::size_t shown = std::min(most, one.missing.size());
        for (const WantedRule& rule : std::span(one.missing).first(shown)) {
            text += zo::Format("  + {}  ({})\n", DescribeRule(table, rule.nt), rule.pointer);
        }
        if (shown < one.missing.size()) text += zo::Format("  + {} more\n", one.missing.size() - shown);
        for (const Rule& rule : one.surplus) {
            text +=
                zo::Format("  - {}{}\n", DescribeRule(table, rule),
                           OnlyByClear(one, rule) ? "  (has no drive path: only clearing the table removes it)" : "");
        }
        for (const ChangedRule& rule : one.changed) {
            text += zo::Format("  ~ {}  ({})\n    held: {}\n", DescribeRule(table, rule.wanted.nt), rule.wanted.pointer,
                               DescribeRule(table, rule.actual));
        }
    }
    if (difference.masterDiffers) {
        text += zo::Format("master switch: {}, wanted {}\n", state.masterEnabled ? "on" : "off",
                           *file.masterEnabled ? "on" : "off");
    }
    if (difference.policyDiffers) {
        text += zo::Format("signature policy: mode {}, minimum level {}; wanted {}, {}\n", state.policy.mode,
                           state.policy.minLevel, file.policy->mode, file.policy->minLevel);
    }
    return text;
}

Json DifferenceJson(const Difference& difference, const RuleFile& file, const DriverState& state) {
    Json tables = Json::object();
    for (const Table table : kAllTables) {
        const TableDifference& one = difference.tables[Index(table)];
        tables[TableName(table)] = one.managed ? TableDifferenceJson(table, one) : Json(nullptr);
    }
    Json json = {{"same", difference.None()}, {"tables", tables}};
    if (difference.masterDiffers) json["master"] = {{"wanted", *file.masterEnabled}, {"held", state.masterEnabled}};
    if (difference.policyDiffers) {
        const auto policy = [](const Policy& one) { return Json{{"mode", one.mode}, {"minLevel", one.minLevel}}; };
        json["signaturePolicy"] = {{"wanted", policy(*file.policy)}, {"held", policy(state.policy)}};
    }
    json["cannotBeReadBack"] = file.HasUnreadable();
    return json;
}

std::size_t InForceCount(const Difference& difference) {
    std::size_t count = 0;
    for (const TableDifference& table : difference.tables)
        count += table.inForce;
    return count;
}

}  // namespace zoctl
