// The four rule families and the ignore lists: process, file, registry, dll.

#include <memory>

#include "channel.h"
#include "command_shapes.h"
#include "driver_records.h"
#include "format.h"
#include "rules_commands.h"
#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct FileRuleOptions {
    std::string path;
    std::string filter;
    bool isFolder = false;
    bool recursive = false;
    std::string scope;
    bool scopeIsFolder = false;
    bool scopeRecursive = false;
    bool exclusive = false;
};

CLI::Option* AddFilter(CLI::App& command, std::string& filter) {
    return command.add_option("--filter", filter, "File-name pattern, such as *.exe; all files if left out")
        ->check([](const std::string& text) {
            // The library cuts longer ones, and the rule would mean something else.
            return zo::WideFromUtf8(text).size() < ZOP_FILTER_UNITS
                       ? std::string()
                       : zo::Format("longer than {} characters", ZOP_FILTER_UNITS - 1);
        });
}

int AddFileFolder(Output& out, const FileRuleOptions& options) {
    const std::wstring filter = zo::WideFromUtf8(options.filter);
    const std::int32_t status = ZoProtector_AddFileProtectByFolder(
        zo::WideFromUtf8(options.path).c_str(), options.recursive, filter.empty() ? nullptr : filter.c_str());
    const Json facts = {{"folder", options.path}, {"recursive", options.recursive}, {"filter", options.filter}};
    return out.Report(status, Subject::kRule, "protect " + Quote(options.path),
                      "Protected: " + Quote(options.path) + ".", facts);
}

int AddFileScoped(Output& out, const FileRuleOptions& options) {
    const std::wstring filter = zo::WideFromUtf8(options.filter);
    const std::int32_t status = ZoProtector_AddFileProtectScoped(
        zo::WideFromUtf8(options.path).c_str(), options.isFolder, options.recursive,
        filter.empty() ? nullptr : filter.c_str(), zo::WideFromUtf8(options.scope).c_str(), options.scopeIsFolder,
        options.scopeRecursive, options.exclusive);
    const Json facts = {{"path", options.path},
                        {"folder", options.isFolder},
                        {"recursive", options.recursive},
                        {"filter", options.filter},
                        {"scope", options.scope},
                        {"scopeFolder", options.scopeIsFolder},
                        {"scopeRecursive", options.scopeRecursive},
                        {"exclusive", options.exclusive}};
    return out.Report(status, Subject::kRule, "protect " + Quote(options.path),
                      "Protected: " + Quote(options.path) + " within the scope " + Quote(options.scope) + ".", facts);
}

void AddFileFolderCommand(Tool& tool, CLI::App& group) {
    const auto options = std::make_shared<FileRuleOptions>();
    CLI::App& command = tool.AddCommand(
        group, {"add-folder", "Protect the files of a folder", "file add-folder C:\\Suite --recursive --filter *.exe"},
        WithDriver([options](Output& out) { return AddFileFolder(out, *options); }));
    command.add_option("folder", options->path)->required();
    command.add_flag("-r,--recursive", options->recursive, "Include its subfolders");
    AddFilter(command, options->filter);
}

void AddFileScopedCommand(Tool& tool, CLI::App& group) {
    const auto options = std::make_shared<FileRuleOptions>();
    CLI::App& command = tool.AddCommand(
        group,
        {"add-scoped", "Protect a file or folder within a scope, as the driver understands scopes",
         "file add-scoped C:\\Suite\\data --folder --recursive --scope C:\\Suite\\bin --scope-folder --exclusive"},
        WithDriver([options](Output& out) { return AddFileScoped(out, *options); }));
    command.add_option("path", options->path)->required();
    command.add_option("--scope", options->scope, "The scope's path")->required();
    command.add_flag("--folder", options->isFolder, "The path is a folder");
    command.add_flag("-r,--recursive", options->recursive, "Include its subfolders");
    AddFilter(command, options->filter);
    command.add_flag("--scope-folder", options->scopeIsFolder, "The scope is a folder");
    command.add_flag("--scope-recursive", options->scopeRecursive, "The scope includes its subfolders");
    command.add_flag("--exclusive", options->exclusive, "Make the rule exclusive");
}

}  // namespace

void RegisterProcess(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "process", "Rules that protect processes");
    AddNameCommand(tool, group, {"add", "Protect the processes of an image file", "process add C:\\Suite\\agent.exe"},
                   "path", ZoProtector_AddProcessProtectByPath, "protect", "Protected:");
    AddRecursiveCommand(
        tool, group,
        {"add-folder", "Protect the processes of all images in a folder", "process add-folder C:\\Suite --recursive"},
        "folder", ZoProtector_AddProcessProtectByFolder, "protect", "Protected:");
    AddNameCommand(tool, group, {"remove", "Remove the rule of a path", "process remove C:\\Suite\\agent.exe"}, "path",
                   ZoProtector_RemoveProcessProtect, "remove the rule of", "No longer protected:");
    AddPlainCommand(tool, group, {"clear", "Remove all process rules", "process clear"},
                    ZoProtector_ClearAllProcessProtect, "remove the process rules", "There are no process rules now.");
}

void RegisterFile(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "file", "Rules that protect files and folders");
    AddNameCommand(tool, group, {"add", "Protect a file", "file add C:\\Suite\\settings.ini"}, "path",
                   ZoProtector_AddFileProtectByPath, "protect", "Protected:");
    AddFileFolderCommand(tool, group);
    AddFileScopedCommand(tool, group);
    AddNameCommand(tool, group, {"remove", "Remove the rules of a path", "file remove C:\\Suite\\settings.ini"}, "path",
                   ZoProtector_RemoveFileProtect, "remove the rule of", "No longer protected:");
    AddPlainCommand(tool, group, {"clear", "Remove all file rules", "file clear"}, ZoProtector_ClearAllFileProtect,
                    "remove the file rules", "There are no file rules now.");
    AddSwitchCommands(tool, group, ZoProtector_EnableFileProtect, "the file filter");
    AddIgnoreGroup(tool, group,
                   {ZoProtector_AddFileIgnoreProcess, ZoProtector_RemoveFileIgnoreProcess,
                    ZoProtector_ClearAllFileIgnoreProcesses});
}

void RegisterRegistry(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "registry", "Rules that protect registry keys");
    AddRecursiveCommand(tool, group,
                        {"add", "Protect a key, by HKLM, HKCR, HKCU, HKU or \\REGISTRY name",
                         "registry add HKLM\\SOFTWARE\\Suite --recursive"},
                        "key", ZoProtector_AddRegistryProtectByKey, "protect", "Protected:");
    AddNameCommand(tool, group, {"remove", "Remove the rule of a key", "registry remove HKLM\\SOFTWARE\\Suite"}, "key",
                   ZoProtector_RemoveRegistryProtect, "remove the rule of", "No longer protected:");
    AddPlainCommand(tool, group, {"clear", "Remove all registry rules", "registry clear"},
                    ZoProtector_ClearAllRegistryProtect, "remove the registry rules",
                    "There are no registry rules now.");
    AddIgnoreGroup(tool, group,
                   {ZoProtector_AddRegistryIgnoreProcess, ZoProtector_RemoveRegistryIgnoreProcess,
                    ZoProtector_ClearAllRegistryIgnoreProcesses});
}

void RegisterDll(CLI::App& root, Tool& tool) {
    CLI::App& group =
        tool.AddGroup(root, "dll", "The DLL load filter and the folders from which modules may always load");
    AddSwitchCommands(tool, group, ZoProtector_EnableDllLoadFilter, "the DLL load filter");
    AddRecursiveCommand(tool, group,
                        {"add", "Let modules load from a folder", "dll add \"C:\\Program Files\\Suite\" --recursive"},
                        "folder", ZoProtector_AddDllWhitelistFolder, "whitelist", "Whitelisted:");
    AddNameCommand(tool, group, {"remove", "Remove a folder from the list", "dll remove \"C:\\Program Files\\Suite\""},
                   "folder", ZoProtector_RemoveDllWhitelistFolder, "remove the entry of", "Removed from the list:");
    AddPlainCommand(tool, group, {"clear", "Empty the list of folders", "dll clear"}, ZoProtector_ClearAllDllWhitelist,
                    "empty the list", "The list is empty.");
}

}  // namespace zoctl
