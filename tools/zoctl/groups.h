#pragma once

// The one list of command groups. A group lives in a file of its own, declares its commands in one function and is
// entered in groups.cpp; nothing else knows of it.

#include <span>

#include "command.h"

namespace zoctl {

using RegisterGroup = void (*)(CLI::App& root, Tool& tool);

void RegisterStatus(CLI::App& root, Tool& tool);
void RegisterDriver(CLI::App& root, Tool& tool);
void RegisterProcess(CLI::App& root, Tool& tool);
void RegisterFile(CLI::App& root, Tool& tool);
void RegisterRegistry(CLI::App& root, Tool& tool);
void RegisterDll(CLI::App& root, Tool& tool);
void RegisterSignature(CLI::App& root, Tool& tool);
void RegisterRules(CLI::App& root, Tool& tool);
void RegisterEvents(CLI::App& root, Tool& tool);
void RegisterKeys(CLI::App& root, Tool& tool);
void RegisterSeal(CLI::App& root, Tool& tool);
void RegisterManifest(CLI::App& root, Tool& tool);
void RegisterMaintenance(CLI::App& root, Tool& tool);
void RegisterCrash(CLI::App& root, Tool& tool);
void RegisterDoctor(CLI::App& root, Tool& tool);

// In the order of the help.
[[nodiscard]] std::span<const RegisterGroup> CommandGroups();

}  // namespace zoctl
