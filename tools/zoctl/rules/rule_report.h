#pragma once

// Rules and differences as tables, text and JSON.

#include <cstddef>
#include <string>
#include <vector>

#include "output.h"
#include "rule_plan.h"

namespace zoctl {

// Drive paths, or NT paths where asked for or where no drive path leads there. Columns that no rule uses are left out,
// so that the table fits a terminal.
[[nodiscard]] TextTable RuleTable(Table table, const std::vector<Rule>& rules, const NameForms& names, bool nt);
// {"rules": [{"nt": {...}, "win32": "..." or null}]}, and "win32Scope" with a scope.
[[nodiscard]] Json TableJson(Table table, const std::vector<Rule>& rules, const NameForms& names);

// "+" what the driver lacks, "-" what it has too much, "~" what it has otherwise.
// most: how many missing rules of each table are listed; the others are counted.
inline constexpr std::size_t kAllMissing = static_cast<std::size_t>(-1);
[[nodiscard]] std::string DifferenceText(const Difference& difference, const RuleFile& file, const DriverState& state,
                                         std::size_t most = kAllMissing);
[[nodiscard]] Json DifferenceJson(const Difference& difference, const RuleFile& file, const DriverState& state);
[[nodiscard]] std::size_t InForceCount(const Difference& difference);

}  // namespace zoctl
