#pragma once

// "zoctl rules apply": the plan shown or carried out, and what the driver holds afterwards.

#include <string>

#include "output.h"
#include "rule_file.h"

namespace zoctl {

inline constexpr const char* kUnreadableNote =
    "Ignore lists, signature overrides and the switches of the file filter and the DLL filter cannot be read back.";

struct ApplyOptions {
    std::string file;
    bool allowMassRemoval = false;
    bool resend = false;
    bool dryRun = false;
};

// With the channel open.
int ApplyRules(Output& out, const RuleFile& file, const NameForms& names, const ApplyOptions& options);

}  // namespace zoctl
