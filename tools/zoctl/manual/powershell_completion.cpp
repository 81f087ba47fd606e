#include <string_view>

#include "completion.h"
#include "format.h"

namespace zoctl {

namespace {

std::string Quoted(std::string_view text) {
    std::string result = "'";
    for (const char character : text)
        result += character == '\'' ? std::string("''") : std::string(1, character);
    return result + "'";
}

std::string List(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words)
        list += (list.empty() ? "" : ", ") + Quoted(word);
    return "@(" + list + ")";
}

// A row of an ordered table: what completes, and the words that are shown with it.
std::string Row(const std::string& name, const std::string& summary) {
    return zo::Format("                {} = {}\n", Quoted(name), Quoted(summary));
}

void AppendNode(const CommandEntry& entry, std::string& tree) {
    std::string commands;
    std::string options;
    std::string values;
    for (const CommandEntry& below : entry.commands)
        commands += Row(below.name, below.summary);
    for (const OptionEntry& option : entry.options) {
        for (const std::string& name : option.names) {
            options += Row(name, option.description);
            if (!option.value.empty())
                values += zo::Format("                {} = {}\n", Quoted(name), List(option.choices));
        }
    }
    for (const OptionEntry& argument : entry.arguments) {
        for (const std::string& choice : argument.choices)
            commands += Row(choice, argument.description.empty() ? entry.summary : argument.description);
    }
    tree += zo::Format(
        "        {} = @{{\n            Words = [ordered]@{{\n{}            }}\n            Options = "
        "[ordered]@{{\n{}            }}\n            Values = @{{\n{}            }}\n        }}\n",
        Quoted(entry.path), commands, options, values);
    for (const CommandEntry& below : entry.commands)
        AppendNode(below, tree);
}

constexpr std::string_view kPowerShellHead =
    R"script(# Completion of zoctl for PowerShell. In $PROFILE:
#     zoctl completion powershell | Out-String | Invoke-Expression

Register-ArgumentCompleter -Native -CommandName 'zoctl', 'zoctl.exe' -ScriptBlock {
    param($wordToComplete, $commandAst, $cursorPosition)
    $tree = @{
)script";

// Where it offers nothing, PowerShell offers files.
constexpr std::string_view kPowerShellTail = R"script(    }
    $path = ''
    $before = ''
    foreach ($element in $commandAst.CommandElements | Select-Object -Skip 1) {
        if ($element.Extent.EndOffset -ge $cursorPosition) { break }
        $before = $element.Extent.Text
        if ($path -eq 'help') { $path = '' }
        $below = "$path $before".Trim()
        if ($tree.ContainsKey($below)) { $path = $below }
    }
    if ($tree[$path].Values.ContainsKey($before)) {
        $offered = [ordered]@{}
        foreach ($choice in $tree[$path].Values[$before]) { $offered[$choice] = $choice }
    } elseif ($wordToComplete.StartsWith('-')) {
        $offered = $tree[$path].Options
    } else {
        if ($path -eq 'help') { $path = '' }
        $offered = $tree[$path].Words
    }
    foreach ($word in $offered.Keys) {
        if ($word.StartsWith($wordToComplete, [System.StringComparison]::OrdinalIgnoreCase)) {
            $shown = if ($offered[$word]) { $offered[$word] } else { $word }
            [System.Management.Automation.CompletionResult]::new($word, $word, 'ParameterValue', $shown)
        }
    }
}
)script";

}  // namespace

std::string PowerShellCompletion(const CommandEntry& tool) {
    std::string tree;
    AppendNode(tool, tree);
    return std::string(kPowerShellHead) + tree + std::string(kPowerShellTail);
}

}  // namespace zoctl
