#include "rule_set.h"

#include <algorithm>
#include <cstring>

#include "driver_records.h"
#include "format.h"
#include "text_table.h"
#include "utf16_text.h"

namespace zoctl {

namespace {

// The text of a record's field; false when nothing ends it.
template <std::size_t units>
bool ReadField(const std::uint16_t (&field)[units], std::string& text) {
    // A packed record's field may lie at an odd address, so it is read as a copy.
    std::array<std::uint16_t, units> copy;
    std::memcpy(copy.data(), &field, sizeof(field));
    const auto end = std::find(copy.begin(), copy.end(), std::uint16_t{0});
    if (end == copy.end()) return false;
    text = Utf8FromUnits({copy.data(), static_cast<std::size_t>(end - copy.begin())});
    return true;
}

template <typename Record>
bool ReadRecord(std::span<const std::uint8_t> entry, Record& record) {
    if (entry.size() < sizeof(record)) return false;
    std::memcpy(&record, entry.data(), sizeof(record));
    return true;
}

std::optional<Rule> DecodeProcess(std::span<const std::uint8_t> entry) {
    ZopRuleRecord record;
    Rule rule;
    if (!ReadRecord(entry, record) || !ReadField(record.path, rule.name)) return std::nullopt;
    rule.isFolder = record.isFolder;
    rule.recursive = record.recursive;
    return rule;
}

std::optional<Rule> DecodeFile(std::span<const std::uint8_t> entry) {
    ZopFileRuleRecord record;
    Rule rule;
    if (!ReadRecord(entry, record) || !ReadField(record.path, rule.name) || !ReadField(record.filter, rule.filter) ||
        !ReadField(record.scopePath, rule.scope)) {
        return std::nullopt;
    }
    rule.isFolder = record.isFolder;
    rule.recursive = record.recursive;
    rule.scopeIsFolder = record.scopeIsFolder;
    rule.scopeRecursive = record.scopeRecursive;
    rule.exclusive = record.exclusive;
    return rule;
}

std::optional<Rule> DecodeRegistry(std::span<const std::uint8_t> entry) {
    ZopRegistryRuleRecord record;
    Rule rule;
    if (!ReadRecord(entry, record) || !ReadField(record.key, rule.name)) return std::nullopt;
    rule.recursive = record.recursive;
    return rule;
}

std::optional<Rule> DecodeDll(std::span<const std::uint8_t> entry) {
    ZopDllFolderRecord record;
    Rule rule;
    if (!ReadRecord(entry, record) || !ReadField(record.path, rule.name)) return std::nullopt;
    rule.isFolder = 1;
    rule.recursive = record.recursive;
    return rule;
}

void AppendFlag(std::string& text, const char* name, std::uint8_t flag) {
    if (flag == 1) text += zo::Format(", {}", name);
    if (flag > 1) text += zo::Format(", {} ({})", name, flag);
}

}  // namespace

bool SameFlags(const Rule& a, const Rule& b) {
    return a.isFolder == b.isFolder && a.recursive == b.recursive && a.scopeIsFolder == b.scopeIsFolder &&
           a.scopeRecursive == b.scopeRecursive && a.exclusive == b.exclusive;
}

const char* KindName(Table table, const Rule& rule) {
    return table == Table::kRegistry ? "key" : rule.isFolder ? "folder" : "file";
}

std::string DescribeRule(Table table, const Rule& rule) {
    std::string text = zo::Format("{} '{}'", KindName(table, rule), EscapeControls(rule.name));
    AppendFlag(text, "recursive", rule.recursive);
    if (!rule.filter.empty()) text += zo::Format(", filter '{}'", EscapeControls(rule.filter));
    if (rule.HasScope()) {
        text += zo::Format(", scope {} '{}'", rule.scopeIsFolder ? "folder" : "file", EscapeControls(rule.scope));
        AppendFlag(text, "scope recursive", rule.scopeRecursive);
    }
    AppendFlag(text, "exclusive", rule.exclusive);
    return text;
}

std::string FromNtKey(const std::string& ntKey) {
    struct Root {
        std::string_view nt;
        const char* name;
    };
    static constexpr Root kRoots[] = {{"\\REGISTRY\\MACHINE\\", "HKLM\\"}, {"\\REGISTRY\\USER\\", "HKU\\"}};
    const auto same = [](char a, char b) { return (a >= 'a' && a <= 'z' ? a - 32 : a) == b; };
    for (const Root& root : kRoots) {
        if (ntKey.size() > root.nt.size() && std::equal(root.nt.begin(), root.nt.end(), ntKey.begin(),
                                                        [&](char want, char have) { return same(have, want); })) {
            return root.name + ntKey.substr(root.nt.size());
        }
    }
    return ntKey;
}

std::string Win32Name(Table table, const std::string& nt, const NameForms& names) {
    return table == Table::kRegistry ? FromNtKey(nt) : names.FromNtPath(nt);
}

std::optional<Rule> DecodeEntry(Table table, std::span<const std::uint8_t> entry) {
    static constexpr std::array kDecoders = {DecodeProcess, DecodeFile, DecodeRegistry, DecodeDll};
    static_assert(kDecoders.size() == kTables);
    return kDecoders[Index(table)](entry);
}

}  // namespace zoctl
