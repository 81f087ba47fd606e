#include "rule_lint.h"

#include "format.h"
#include "text_table.h"

namespace zoctl {

namespace {

// A name of a rule, with where the file has it and where it leads.
struct NamedPlace {
    std::string pointer;
    std::string given;
    Place place;
};

std::vector<NamedPlace> NamedPlaces(const RuleFile& file, const Places& places) {
    std::vector<NamedPlace> named;
    const auto addRules = [&](const std::optional<WantedRules>& rules, Table table) {
        if (!rules) return;
        for (const WantedRule& rule : *rules) {
            named.push_back({rule.pointer, rule.given.name,
                             table == Table::kRegistry ? places.OfKey(rule.nt.name)
                                                       : places.OfPath(rule.given.name, rule.nt.name)});
            if (rule.given.scope.empty()) continue;
            named.push_back(
                {rule.pointer + "/scope", rule.given.scope, places.OfPath(rule.given.scope, rule.nt.scope)});
        }
    };
    for (const Table table : kAllTables)
        addRules(file.tables[Index(table)], table);
    addRules(file.fileIgnore, Table::kFile);
    addRules(file.registryIgnore, Table::kFile);
    return named;
}

void AddUnseenNames(const std::vector<NamedPlace>& named, std::vector<LintFinding>& findings) {
    for (const auto& [pointer, given, place] : named) {
        if (place.seenAs.empty() && place.detour.empty()) continue;
        std::string message = zo::Format("The driver never sees the name '{}'", EscapeControls(given));
        if (!place.detour.empty()) message += ", which " + EscapeControls(place.detour);
        message += ".";
        if (!place.seenAs.empty()) message += zo::Format(" It sees '{}'.", EscapeControls(place.seenAs));
        findings.push_back({"unseenName", pointer, std::move(message)});
    }
}

}  // namespace

std::vector<LintFinding> FindUnseenNames(const RuleFile& file, const Places& places) {
    std::vector<LintFinding> findings;
    AddUnseenNames(NamedPlaces(file, places), findings);
    return findings;
}

}  // namespace zoctl
