#pragma once

// Rules as values: the driver's four tables and the ignore lists. One type serves what a file wants (Win32 names) and
// what the driver holds (NT names); comparing is done among NT names only. Pure; text is UTF-8.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "rule_tables.h"

namespace zoctl {

// The flags are bytes because the driver keeps the byte that it was given: 2 is not 1.
struct Rule {
    std::string name;  // path or key
    std::uint8_t isFolder = 0;
    std::uint8_t recursive = 0;
    std::string filter = {};
    std::string scope = {};  // empty for an unscoped rule
    std::uint8_t scopeIsFolder = 0;
    std::uint8_t scopeRecursive = 0;
    std::uint8_t exclusive = 0;

    bool operator==(const Rule&) const = default;
    // A driver may hold a scope's flags without a scope; nobody can have asked for that through the library.
    [[nodiscard]] bool HasScope() const { return !scope.empty() || scopeIsFolder || scopeRecursive; }
};

// Whether all but the names is the same.
[[nodiscard]] bool SameFlags(const Rule& a, const Rule& b);

// "key", "folder" or "file"
[[nodiscard]] const char* KindName(Table table, const Rule& rule);

// "folder 'C:\Suite', recursive, filter '*.exe'"
[[nodiscard]] std::string DescribeRule(Table table, const Rule& rule);

// Win32 names and NT names of this machine. An interface, so that the planning can be tested without one.
class NameForms {
  public:
    struct Converted {
        std::string text;    // the NT name
        std::string reason;  // why there is none; then text is empty
    };

    virtual ~NameForms() = default;
    [[nodiscard]] virtual Converted ToNtPath(const std::string& path) const = 0;
    [[nodiscard]] virtual Converted ToNtKey(const std::string& key) const = 0;
    // A name that converts to just this NT name, or "" when there is none.
    [[nodiscard]] virtual std::string FromNtPath(const std::string& ntPath) const = 0;
    // For comparing as the driver does, ignoring case.
    [[nodiscard]] virtual std::string Fold(const std::string& text) const = 0;
};

// "\REGISTRY\MACHINE\X" as HKLM\X, "\REGISTRY\USER\X" as HKU\X, any other unchanged; all are taken back as input.
[[nodiscard]] std::string FromNtKey(const std::string& ntKey);

// The name by which a rule of this table can be given to the library, or "" when there is none.
[[nodiscard]] std::string Win32Name(Table table, const std::string& nt, const NameForms& names);

// One entry of a list reply: the add record, then zero bytes. Nothing when a string has no end or the entry is not long
// enough, that is, when the driver is not one whose entries are add records.
[[nodiscard]] std::optional<Rule> DecodeEntry(Table table, std::span<const std::uint8_t> entry);

}  // namespace zoctl
