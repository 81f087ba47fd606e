#include <CLI/CLI.hpp>
#include <string>

#include "command.h"
#include "console.h"
#include "exit_codes.h"
#include "format.h"
#include "groups.h"
#include "library_settings.h"
#include "zoprotector.h"

namespace {

std::string ExitCodesFooter() {
    std::string footer = "Exit codes:";
    for (const zoctl::ExitCodeRow& row : zoctl::ExitCodeTable()) {
        footer += zo::Format("\n  {:<10} {}", row.code, row.meaning);
    }
    return footer + "\n\n\"zoctl GROUP --help\" shows a group's commands.";
}

std::string Version() {
    const std::string settings = zoctl::DevelopmentSettings();
    return zo::Format("zoctl {}.{}.{}{}", ZOP_SDK_VERSION_MAJOR, ZOP_SDK_VERSION_MINOR, ZOP_SDK_VERSION_PATCH,
                      settings.empty() ? "" : "\nThe library has " + settings);
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): without memory for the commands there is nobody to report it
int main() {
    zoctl::InstallCtrlC();
    CLI::App app("Installs, controls and watches the protection driver, signs folders and reports crashes.", "zoctl");
    zoctl::Tool tool(app);
    app.set_version_flag("--version", Version);
    app.footer(ExitCodesFooter());
    for (const zoctl::RegisterGroup registerGroup : zoctl::CommandGroups())
        registerGroup(app, tool);
    // The platform's UTF-16 command line: the code page of main's own arguments cannot express every name.
    return tool.Run(zoctl::CommandLineArguments());
}
