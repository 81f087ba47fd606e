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

// All findings: names that lead nowhere on this machine, unseen names, rules that a wider rule of the same list covers,
// and filters that no file fits. The pattern language of filters is the driver's; here * is any text and ? any one
// character, ignoring case.
[[nodiscard]] std::vector<LintFinding> Lint(const RuleFile& file, const NameForms& names, const Places& places);

}  // namespace zoctl
