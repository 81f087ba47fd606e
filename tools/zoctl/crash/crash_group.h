#pragma once

// "zoctl crash".

#include "command.h"

namespace zoctl {

void RegisterCrash(CLI::App& root, Tool& tool);

}  // namespace zoctl
