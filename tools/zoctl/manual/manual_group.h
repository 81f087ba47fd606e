#pragma once

// "help --man" and "completion": the command tree in other forms.

#include "command.h"

namespace zoctl {

void RegisterManual(CLI::App& root, Tool& tool);

}  // namespace zoctl
