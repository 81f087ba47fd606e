#pragma once

// "driver upgrade" has a room of its own above those of the driver and of the rules, because it needs both: it can
// carry the rules over a restart.

#include "command.h"

namespace zoctl {

// After RegisterDriver, whose group the command joins.
void RegisterUpgrade(CLI::App& root, Tool& tool);

}  // namespace zoctl
