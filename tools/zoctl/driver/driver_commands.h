#pragma once

// The commands of the driver room: service, status, single commands, doctor.

#include "command.h"

namespace zoctl {

void RegisterDoctor(CLI::App& root, Tool& tool);
void RegisterDriver(CLI::App& root, Tool& tool);
void RegisterStatus(CLI::App& root, Tool& tool);
void RegisterMaintenance(CLI::App& root, Tool& tool);

// Commands of the group "driver" that are long enough for a file of their own.
void AddInstall(Tool& tool, CLI::App& group);

}  // namespace zoctl
