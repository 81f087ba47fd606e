#pragma once

// "zoctl events".

#include "command.h"

namespace zoctl {

void RegisterEvents(CLI::App& root, Tool& tool);

}  // namespace zoctl
