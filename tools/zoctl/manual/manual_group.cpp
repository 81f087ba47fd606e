#include "manual_group.h"

#include <algorithm>
#include <memory>

#include "completion.h"
#include "format.h"
#include "manual_page.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct HelpOptions {
    std::string command;
    bool manual = false;
};

// As it is for people, who redirect it into a file; as a member of the JSON document.
int Show(Output& out, const char* member, const std::string& text) {
    if (out.Machine()) return out.Done("", {{member, text}});
    out.Put(text);
    return out.End(kExitDone);
}

int ManualPage(Output& out, const CLI::App& root, const HelpOptions& options) {
    if (!options.manual)
        return out.Refuse(kExitUsage, "Help has no JSON form.",
                          "Add --man, for the manual page as a member of the document.");
    const CommandEntry tool = ReadCommands(root);
    const std::string version =
        zo::Format("{}.{}.{}", ZOP_SDK_VERSION_MAJOR, ZOP_SDK_VERSION_MINOR, ZOP_SDK_VERSION_PATCH);
    if (options.command.empty()) return Show(out, "page", ToolPage(tool, version));
    const auto command = std::ranges::find(tool.commands, options.command, &CommandEntry::name);
    if (command == tool.commands.end())
        return out.Refuse(kExitUsage, "There is no command or group " + Quote(options.command) + ".",
                          "\"zoctl --help\" shows the commands.");
    return Show(out, "page", CommandPage(*command, version));
}

}  // namespace

void RegisterManual(CLI::App& root, Tool& tool) {
    const auto options = std::make_shared<HelpOptions>();
    CLI::App& help = tool.AddCommand(
        root,
        {"help", "Show the help of a group or command, or its manual page", "help driver install\nhelp --man driver"},
        [&root, options](Output& out) { return ManualPage(out, root, *options); });
    help.add_option("command", options->command, "The group or command; zoctl itself if left out");
    help.add_flag("--man", options->manual,
                  "As a manual page, for man -l: a command of the top level with all below it");

    const auto shell = std::make_shared<std::string>();
    tool.AddCommand(root,
                    {"completion", "Write the script by which a shell completes zoctl's command lines",
                     "completion bash\ncompletion powershell"},
                    [&root, shell](Output& out) {
                        const CommandEntry commands = ReadCommands(root);
                        return Show(out, "script",
                                    *shell == "bash" ? BashCompletion(commands) : PowerShellCompletion(commands));
                    })
        .add_option("shell", *shell, "The shell")
        ->required()
        ->check(CLI::IsMember({"bash", "powershell"}));
}

}  // namespace zoctl
