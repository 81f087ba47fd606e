#pragma once

// The driver's tables read back, whole: a table that grows between two calls is asked for again.

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"
#include "rule_file.h"

namespace zoctl {

struct TableContents {
    std::vector<Rule> rules;           // NT names
    std::vector<std::string> unknown;  // entries that are no add records, in hexadecimal
    std::uint32_t total = 0;           // as the driver counts
};

[[nodiscard]] std::int32_t ReadTable(Table table, TableContents& contents);

// Tables, master switch and signature policy. what names the step that failed. An entry of unknown form is a failure
// here (ZOP_E_VERSION_MISMATCH), for a rule set cannot be compared with what cannot be read.
[[nodiscard]] std::int32_t ReadDriverState(DriverState& state, std::string& what);
// The same for a command, which ends when it fails.
[[nodiscard]] Ended LoadDriverState(Output& out, DriverState& state);

}  // namespace zoctl
