#pragma once

// What is wrong with a rule file on this machine although it has no mistakes. Pure.

#include <string>
#include <vector>

#include "rule_file.h"
#include "rule_places.h"

namespace zoctl {

struct LintFinding {
    const char* kind;  // as docs/rules.md lists them
    std::string pointer;
    std::string message;
};

// Names that the kernel never sees, so that a rule for them matches nothing: links, mount points, short (8.3) names,
// substituted and network drives, and registry links.
[[nodiscard]] std::vector<LintFinding> FindUnseenNames(const RuleFile& file, const Places& places);

}  // namespace zoctl
