#pragma once

// A rule file read from disk, for the commands that take one.

#include <string>

#include "output.h"
#include "rule_file.h"

namespace zoctl {

// Reads and checks the file; with mistakes it reports all of them and the command ends.
[[nodiscard]] Ended LoadRuleFile(Output& out, const std::string& path, const NameForms& names, RuleFile& file);

}  // namespace zoctl
