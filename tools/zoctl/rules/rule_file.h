#pragma once

// The wanted rule set as one JSON file: reading and checking it, and writing one. docs/rules.md describes the format,
// docs/rules.schema.json its shape. A part that the file leaves out is not managed: what the driver has there stays as
// it is. Pure, but for the names, which NameForms converts.

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json_reader.h"
#include "rule_set.h"

namespace zoctl {

inline constexpr unsigned kRuleFileVersion = 1;

// A rule that the file asks for, with the place that asks and the names that the driver will hold.
struct WantedRule {
    Rule given;
    Rule nt;
    std::string pointer;
};
using WantedRules = std::vector<WantedRule>;

struct Policy {
    std::uint8_t mode = 0;
    std::uint8_t minLevel = 0;

    bool operator==(const Policy&) const = default;
};

struct RuleFile {
    std::array<std::optional<WantedRules>, kTables> tables;
    std::optional<bool> masterEnabled;
    std::optional<Policy> policy;
    // What the driver cannot be asked for.
    std::optional<bool> fileEnabled;
    std::optional<bool> dllEnabled;
    std::optional<WantedRules> fileIgnore;
    std::optional<WantedRules> registryIgnore;
    std::optional<std::vector<std::uint32_t>> overrides;

    [[nodiscard]] bool HasUnreadable() const {
        return fileEnabled || dllEnabled || fileIgnore || registryIgnore || overrides;
    }
    // How many rules the table is to hold; 0 when it is not managed.
    [[nodiscard]] std::size_t Count(Table table) const {
        const auto& rules = tables[Index(table)];
        return rules ? rules->size() : 0;
    }
};

// Finds every mistake, not only the first. The result is to be used only when there is none.
[[nodiscard]] RuleFile ReadRuleFile(std::string_view text, const NameForms& names, std::vector<Mistake>& mistakes);

// What the driver holds, as a file that brings a driver there again.
struct DriverState {
    std::array<std::vector<Rule>, kTables> tables;  // NT names
    bool masterEnabled = false;
    Policy policy;
};
// leftOut gets a sentence for each rule that a file cannot ask for, such as one that no Win32 name leads to.
[[nodiscard]] nlohmann::ordered_json WriteRuleFile(const DriverState& state, const NameForms& names,
                                                   std::vector<std::string>& leftOut);
// A rule as the file writes it.
[[nodiscard]] nlohmann::ordered_json RuleJson(Table table, const Rule& rule);

}  // namespace zoctl
