#pragma once

// Manual pages in the language of man(7). Pure.

#include <string>
#include <string_view>

#include "command_tree.h"

namespace zoctl {

// zoctl(1): all commands in a line each, and the exit codes.
[[nodiscard]] std::string ToolPage(const CommandEntry& tool, std::string_view version);

// zoctl-NAME(1): a command of the top level, or a group with all its commands.
[[nodiscard]] std::string CommandPage(const CommandEntry& command, std::string_view version);

}  // namespace zoctl
