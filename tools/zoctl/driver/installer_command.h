#pragma once

// The commands that replace or remove the driver. One of them runs at a time on this machine: each takes a named mutex
// first. docs/upgrade.md names it, for other installers.

#include "command.h"
#include "console.h"

namespace zoctl {

inline constexpr wchar_t kInstallerMutex[] = L"Global\\ZoProtectorDriverInstaller";

// As Tool::AddCommand. The action runs while the mutex is held, and the first Ctrl-C does not end it. Adds --wait.
CLI::App& AddInstallerCommand(Tool& tool, CLI::App& group, const CommandText& text, Action action);

// Half an installation or half a replacement is worse than either end, so the first Ctrl-C does not end it.
[[nodiscard]] Cancellation DeferFirstCtrlC(Output& out);

}  // namespace zoctl
