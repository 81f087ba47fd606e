#include "rule_file.h"

#include <algorithm>
#include <map>
#include <set>

#include "driver_records.h"
#include "format.h"

namespace zoctl {

namespace {

std::size_t Utf16Units(const std::string& utf8) {
    std::size_t units = 0;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0u) != 0x80u) units += byte >= 0xF0u ? 2 : 1;
    }
    return units;
}

// Walks the document and gathers mistakes with the place of each.
class Reader : JsonReader {
  public:
    Reader(const NameForms& names, std::vector<Mistake>& mistakes) : JsonReader(mistakes), names_(names) {}

    RuleFile ReadFile(const Json& file);

  private:
    // Null, after recording a mistake, when it exists but is not an object; unknown members are mistakes.
    const Json* Section(const Json& file, const char* name, std::initializer_list<const char*> allowed);
    std::optional<bool> Enabled(const Json* section, const std::string& at);
    std::uint8_t Flag(const Json& rule, const char* name, const std::string& at, bool oneBit);
    std::string Path(const Json& value, const std::string& at, std::string& nt);
    std::string Key(const Json& value, const std::string& at, std::string& nt);

    // Reads "path" or "folder"; it is a mistake when there is not just one of them.
    void Place(const Json& rule, const std::string& at, std::string& name, std::string& nt, std::uint8_t& isFolder);
    WantedRule ProcessRule(const Json& rule, const std::string& at);
    WantedRule FileRule(const Json& rule, const std::string& at);
    WantedRule RegistryRule(const Json& rule, const std::string& at);
    WantedRule DllFolder(const Json& rule, const std::string& at);
    WantedRule IgnoreEntry(const Json& rule, const std::string& at);
    void Scope(const Json& rule, const std::string& at, WantedRule& wanted);

    using ReadRule = WantedRule (Reader::*)(const Json&, const std::string&);
    std::optional<WantedRules> List(const Json* section, const char* name, const std::string& at, ReadRule read);
    void FindDuplicates(const WantedRules& rules);
    void ReadSignature(const Json& file, RuleFile& wanted);

    const NameForms& names_;
};

const Json* Reader::Section(const Json& file, const char* name, std::initializer_list<const char*> allowed) {
    const auto found = file.find(name);
    if (found == file.end()) return nullptr;
    return IsObject(*found, std::string("/") + name, allowed) ? &*found : nullptr;
}

std::optional<bool> Reader::Enabled(const Json* section, const std::string& at) {
    if (!section || !section->contains("enabled")) return std::nullopt;
    const Json& value = (*section)["enabled"];
    if (value.is_boolean()) return value.get<bool>();
    Say(at + "/enabled", "must be true or false");
    return std::nullopt;
}

// oneBit: the library itself makes 1 of every other number, so that only 0 and 1 can be asked for.
std::uint8_t Reader::Flag(const Json& rule, const char* name, const std::string& at, bool oneBit) {
    const auto found = rule.find(name);
    if (found == rule.end()) return 0;
    if (found->is_boolean()) return found->get<bool>() ? 1 : 0;
    const std::uint64_t highest = oneBit ? 1 : 255;
    if (found->is_number_unsigned() && found->get<std::uint64_t>() <= highest) return found->get<std::uint8_t>();
    Say(at + "/" + name, zo::Format("must be true, false or a whole number from 0 to {}", highest));
    return 0;
}

std::string Reader::Path(const Json& value, const std::string& at, std::string& nt) {
    const auto text = Text(value, at);
    if (!text) return {};
    const bool drive = text->size() >= 3 && (*text)[1] == ':' && ((*text)[2] == '\\' || (*text)[2] == '/');
    if (!drive && !text->starts_with("\\\\")) {
        Say(at, "must be a full path: a drive, a colon and a backslash, or two backslashes at the start");
        return {};
    }
    NameForms::Converted converted = names_.ToNtPath(*text);
    if (converted.text.empty()) Say(at, converted.reason);
    nt = std::move(converted.text);
    return *text;
}

std::string Reader::Key(const Json& value, const std::string& at, std::string& nt) {
    const auto text = Text(value, at);
    if (!text) return {};
    NameForms::Converted converted = names_.ToNtKey(*text);
    if (converted.text.empty()) Say(at, converted.reason);
    nt = std::move(converted.text);
    return *text;
}

void Reader::Place(const Json& rule, const std::string& at, std::string& name, std::string& nt,
                   std::uint8_t& isFolder) {
    const bool path = rule.contains("path");
    const bool folder = rule.contains("folder");
    if (path == folder) {
        Say(at, path ? "must have \"path\" or \"folder\", not both" : "must have \"path\" or \"folder\"");
        return;
    }
    isFolder = folder ? 1 : 0;
    const char* member = folder ? "folder" : "path";
    name = Path(rule[member], at + "/" + member, nt);
}

WantedRule Reader::ProcessRule(const Json& rule, const std::string& at) {
    WantedRule wanted;
    if (!IsObject(rule, at, {"path", "folder", "recursive"})) return wanted;
    Place(rule, at, wanted.given.name, wanted.nt.name, wanted.given.isFolder);
    wanted.given.recursive = Flag(rule, "recursive", at, false);
    if (wanted.given.recursive && rule.contains("path")) Say(at + "/recursive", "is allowed with a \"folder\" only");
    return wanted;
}

void Reader::Scope(const Json& rule, const std::string& at, WantedRule& wanted) {
    const auto scope = rule.find("scope");
    if (scope == rule.end()) return;
    if (!IsObject(*scope, at + "/scope", {"path", "folder", "recursive"})) return;
    Place(*scope, at + "/scope", wanted.given.scope, wanted.nt.scope, wanted.given.scopeIsFolder);
    wanted.given.scopeRecursive = Flag(*scope, "recursive", at + "/scope", true);
}

WantedRule Reader::FileRule(const Json& rule, const std::string& at) {
    WantedRule wanted;
    if (!IsObject(rule, at, {"path", "folder", "recursive", "filter", "scope", "exclusive"})) return wanted;
    const bool scoped = rule.contains("scope");
    Place(rule, at, wanted.given.name, wanted.nt.name, wanted.given.isFolder);
    Scope(rule, at, wanted);
    wanted.given.recursive = Flag(rule, "recursive", at, scoped);
    wanted.given.exclusive = Flag(rule, "exclusive", at, true);
    if (rule.contains("filter")) {
        if (const auto filter = Text(rule["filter"], at + "/filter")) wanted.given.filter = *filter;
        if (Utf16Units(wanted.given.filter) >= ZOP_FILTER_UNITS) {
            Say(at + "/filter", zo::Format("is longer than {} characters", ZOP_FILTER_UNITS - 1));
        }
    }
    if (scoped) return wanted;
    // A rule of one file takes neither; only rules with a scope go the way that allows them.
    if (wanted.given.exclusive) Say(at + "/exclusive", "is allowed with a \"scope\" only");
    if (rule.contains("path") && wanted.given.recursive)
        Say(at + "/recursive", "is allowed with a \"folder\" or a \"scope\" only");
    if (rule.contains("path") && !wanted.given.filter.empty()) {
        Say(at + "/filter", "is allowed with a \"folder\" or a \"scope\" only");
    }
    return wanted;
}

WantedRule Reader::RegistryRule(const Json& rule, const std::string& at) {
    WantedRule wanted;
    if (!IsObject(rule, at, {"key", "recursive"})) return wanted;
    if (!rule.contains("key")) {
        Say(at, "must have a \"key\"");
        return wanted;
    }
    wanted.given.name = Key(rule["key"], at + "/key", wanted.nt.name);
    wanted.given.recursive = Flag(rule, "recursive", at, false);
    return wanted;
}

WantedRule Reader::DllFolder(const Json& rule, const std::string& at) {
    WantedRule wanted;
    if (!IsObject(rule, at, {"folder", "recursive"})) return wanted;
    if (!rule.contains("folder")) {
        Say(at, "must have a \"folder\"");
        return wanted;
    }
    wanted.given.isFolder = 1;
    wanted.given.name = Path(rule["folder"], at + "/folder", wanted.nt.name);
    wanted.given.recursive = Flag(rule, "recursive", at, false);
    return wanted;
}

WantedRule Reader::IgnoreEntry(const Json& rule, const std::string& at) {
    WantedRule wanted;
    if (!IsObject(rule, at, {"path", "folder", "recursive"})) return wanted;
    Place(rule, at, wanted.given.name, wanted.nt.name, wanted.given.isFolder);
    wanted.given.recursive = Flag(rule, "recursive", at, true);
    return wanted;
}

// Two rules that are the same for the driver: the second would be refused, or, where the flags differ, it would be
// unclear which one is meant.
void Reader::FindDuplicates(const WantedRules& rules) {
    std::map<std::array<std::string, 3>, std::string> seen;
    for (const WantedRule& rule : rules) {
        if (rule.nt.name.empty()) continue;
        const std::array<std::string, 3> identity = {names_.Fold(rule.nt.name), names_.Fold(rule.nt.filter),
                                                     names_.Fold(rule.nt.scope)};
        const auto [first, added] = seen.emplace(identity, rule.pointer);
        if (!added) Say(rule.pointer, "is the same rule to the driver as " + first->second);
    }
}

std::optional<WantedRules> Reader::List(const Json* section, const char* name, const std::string& at, ReadRule read) {
    if (!section || !section->contains(name)) return std::nullopt;
    const Json& list = (*section)[name];
    const std::string here = at + "/" + name;
    if (!list.is_array()) {
        Say(here, "must be a list");
        return std::nullopt;
    }
    WantedRules rules;
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string pointer = zo::Format("{}/{}", here, i);
        WantedRule rule = (this->*read)(list[i], pointer);
        Rule nt = rule.given;
        nt.name = std::move(rule.nt.name);
        nt.scope = std::move(rule.nt.scope);
        rule.nt = std::move(nt);
        rule.pointer = std::move(pointer);
        rules.push_back(std::move(rule));
    }
    FindDuplicates(rules);
    return rules;
}

void Reader::ReadSignature(const Json& file, RuleFile& wanted) {
    const Json* signature = Section(file, "signature", {"policy", "overrides"});
    if (!signature) return;
    if (signature->contains("policy")) {
        const Json& policy = (*signature)["policy"];
        if (IsObject(policy, "/signature/policy", {"mode", "minLevel"})) {
            Policy& into = wanted.policy.emplace();
            for (const auto& [name, field] : {std::pair{"mode", &into.mode}, std::pair{"minLevel", &into.minLevel}}) {
                if (!policy.contains(name)) {
                    Say("/signature/policy", zo::Format("must have \"{}\"", name));
                } else if (const auto number = Number(policy[name], std::string("/signature/policy/") + name, 255)) {
                    *field = static_cast<std::uint8_t>(*number);
                }
            }
        }
    }
    if (!signature->contains("overrides")) return;
    const Json& list = (*signature)["overrides"];
    if (!list.is_array()) {
        Say("/signature/overrides", "must be a list");
        return;
    }
    auto& pids = wanted.overrides.emplace();
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string at = zo::Format("/signature/overrides/{}", i);
        const auto pid = Number(list[i], at, 0xFFFFFFFFu);
        if (!pid) continue;
        if (std::find(pids.begin(), pids.end(), *pid) != pids.end()) Say(at, "is in the list already");
        pids.push_back(static_cast<std::uint32_t>(*pid));
    }
}

RuleFile Reader::ReadFile(const Json& file) {
    RuleFile wanted;
    if (!IsObject(file, "",
                  {"$schema", "version", "comment", "master", "process", "file", "registry", "dll", "signature"})) {
        return wanted;
    }
    if (!file.contains("version")) {
        Say("", "must have a \"version\"");
    } else if (file["version"] != kRuleFileVersion) {
        Say("/version", zo::Format("must be {}", kRuleFileVersion));
    }
    for (const char* name : {"$schema", "comment"}) {
        if (file.contains(name) && !file[name].is_string()) Say(std::string("/") + name, "must be text");
    }
    wanted.masterEnabled = Enabled(Section(file, "master", {"enabled"}), "/master");
    const Json* process = Section(file, "process", {"rules"});
    wanted.tables[Index(Table::kProcess)] = List(process, "rules", "/process", &Reader::ProcessRule);
    const Json* files = Section(file, "file", {"enabled", "rules", "ignore"});
    wanted.fileEnabled = Enabled(files, "/file");
    wanted.tables[Index(Table::kFile)] = List(files, "rules", "/file", &Reader::FileRule);
    wanted.fileIgnore = List(files, "ignore", "/file", &Reader::IgnoreEntry);
    const Json* registry = Section(file, "registry", {"rules", "ignore"});
    wanted.tables[Index(Table::kRegistry)] = List(registry, "rules", "/registry", &Reader::RegistryRule);
    wanted.registryIgnore = List(registry, "ignore", "/registry", &Reader::IgnoreEntry);
    const Json* dll = Section(file, "dll", {"enabled", "folders"});
    wanted.dllEnabled = Enabled(dll, "/dll");
    wanted.tables[Index(Table::kDll)] = List(dll, "folders", "/dll", &Reader::DllFolder);
    ReadSignature(file, wanted);
    return wanted;
}

}  // namespace

RuleFile ReadRuleFile(std::string_view text, const NameForms& names, std::vector<Mistake>& mistakes) {
    const std::optional<Json> file = ParseJson(text, mistakes);
    return file ? Reader(names, mistakes).ReadFile(*file) : RuleFile{};
}

}  // namespace zoctl
