#pragma once

// The commands of the seal room: keys, sign, verify, manifest.

#include "command.h"

namespace zoctl {

void RegisterKeys(CLI::App& root, Tool& tool);
void RegisterSeal(CLI::App& root, Tool& tool);
void RegisterManifest(CLI::App& root, Tool& tool);

}  // namespace zoctl
