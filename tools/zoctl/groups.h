#pragma once

// The one list of command groups. A group lives in a file of its own, declares its commands in one function, in a
// header of its room, and is entered in groups.cpp; nothing else knows of it.

#include <span>

#include "command.h"

namespace zoctl {

using RegisterGroup = void (*)(CLI::App& root, Tool& tool);

// In the order of the help.
[[nodiscard]] std::span<const RegisterGroup> CommandGroups();

}  // namespace zoctl
