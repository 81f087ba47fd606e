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

void AddAbsent(const std::vector<NamedPlace>& named, std::vector<LintFinding>& findings) {
    for (const auto& [pointer, given, place] : named) {
        if (place.presence != Presence::kAbsent) continue;
        findings.push_back(
            {"absent", pointer, zo::Format("'{}' does not exist on this machine.", EscapeControls(given))});
    }
}

// A rule's names as the driver compares them.
struct FoldedRule {
    const WantedRule* rule;
    std::string name;
    std::string filter;
    std::string scope;
};

// Whether the outer rule's place has all of the inner one's in it.
bool Contains(Table table, const FoldedRule& outer, const FoldedRule& inner) {
    const Rule& wide = outer.rule->given;
    const Rule& narrow = inner.rule->given;
    const bool holdsOthers = table == Table::kRegistry ? wide.recursive != 0 : wide.isFolder != 0;
    if (inner.name == outer.name) return wide.isFolder == narrow.isFolder && (wide.recursive || !narrow.recursive);
    if (!holdsOthers || !inner.name.starts_with(outer.name + "\\")) return false;
    const bool child = inner.name.rfind('\\') == outer.name.size();
    return wide.recursive || (child && !narrow.isFolder);
}

bool SameScope(const FoldedRule& a, const FoldedRule& b) {
    const Rule& one = a.rule->given;
    const Rule& other = b.rule->given;
    return a.scope == b.scope && one.scopeIsFolder == other.scopeIsFolder &&
           one.scopeRecursive == other.scopeRecursive && one.exclusive == other.exclusive;
}

void AddCovered(Table table, const std::optional<WantedRules>& rules, const NameForms& names,
                std::vector<LintFinding>& findings) {
    if (!rules) return;
    std::vector<FoldedRule> folded;
    for (const WantedRule& rule : *rules) {
        folded.push_back({&rule, names.Fold(rule.nt.name), names.Fold(rule.nt.filter), names.Fold(rule.nt.scope)});
        while (folded.back().name.ends_with('\\'))
            folded.back().name.pop_back();
    }
    for (const FoldedRule& inner : folded) {
        for (const FoldedRule& outer : folded) {
            if (&outer == &inner || !Contains(table, outer, inner)) continue;
            const bool sameFilter = outer.filter == inner.filter;
            const bool sameScope = SameScope(outer, inner);
            if (sameFilter && sameScope) {
                findings.push_back({"coveredTwice", inner.rule->pointer,
                                    zo::Format("is covered by {} already.", outer.rule->pointer)});
            } else if ((sameFilter || outer.filter.empty()) && (sameScope || !outer.rule->given.HasScope())) {
                findings.push_back({"shadowed", inner.rule->pointer,
                                    zo::Format("is inside {}, which covers the same files without this rule's {}.",
                                               outer.rule->pointer, sameFilter ? "scope" : "filter")});
            } else {
                continue;
            }
            break;  // one wider rule is reason enough
        }
    }
}

void AddFruitlessFilters(const RuleFile& file, const Places& places, std::vector<LintFinding>& findings) {
    const auto& rules = file.tables[Index(Table::kFile)];
    if (!rules) return;
    for (const WantedRule& rule : *rules) {
        const Rule& given = rule.given;
        if (!given.isFolder || given.filter.empty()) continue;
        if (places.AnyFile(given.name, given.recursive != 0, given.filter) != Presence::kAbsent) continue;
        findings.push_back({"filterMatchesNothing", rule.pointer,
                            zo::Format("No file of '{}' matches the filter '{}' on this machine.",
                                       EscapeControls(given.name), EscapeControls(given.filter))});
    }
}

}  // namespace

std::vector<LintFinding> Lint(const RuleFile& file, const NameForms& names, const Places& places) {
    std::vector<LintFinding> findings;
    const std::vector<NamedPlace> named = NamedPlaces(file, places);
    AddAbsent(named, findings);
    AddUnseenNames(named, findings);
    for (const Table table : kAllTables)
        AddCovered(table, file.tables[Index(table)], names, findings);
    AddCovered(Table::kProcess, file.fileIgnore, names, findings);
    AddCovered(Table::kProcess, file.registryIgnore, names, findings);
    AddFruitlessFilters(file, places, findings);
    return findings;
}

std::vector<LintFinding> FindUnseenNames(const RuleFile& file, const Places& places) {
    std::vector<LintFinding> findings;
    AddUnseenNames(NamedPlaces(file, places), findings);
    return findings;
}

}  // namespace zoctl
