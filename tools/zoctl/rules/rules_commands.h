#pragma once

// The commands of the rules room: the rule families, the signature policy, and whole rule sets.

#include "command.h"

namespace zoctl {

void RegisterProcess(CLI::App& root, Tool& tool);
void RegisterFile(CLI::App& root, Tool& tool);
void RegisterRegistry(CLI::App& root, Tool& tool);
void RegisterDll(CLI::App& root, Tool& tool);
void RegisterSignature(CLI::App& root, Tool& tool);
void RegisterRules(CLI::App& root, Tool& tool);

}  // namespace zoctl
