#pragma once

// Scripts by which shells complete zoctl's command lines. They hold all names and values, so that completing never runs
// zoctl. Pure.

#include <string>

#include "command_tree.h"

namespace zoctl {

[[nodiscard]] std::string BashCompletion(const CommandEntry& tool);

[[nodiscard]] std::string PowerShellCompletion(const CommandEntry& tool);

}  // namespace zoctl
