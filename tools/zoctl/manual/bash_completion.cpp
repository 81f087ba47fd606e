#include <string_view>

#include "completion.h"
#include "format.h"

namespace zoctl {

namespace {

// A case of a shell function that prints words. Names and choices hold letters, digits and "-" only.
std::string Case(const std::string& pattern, const std::string& words) {
    return words.empty() ? std::string() : zo::Format("        '{}') echo '{}' ;;\n", pattern, words);
}

struct Tables {
    std::string commands;   // what a group consists of
    std::string options;    // of a group or command
    std::string arguments;  // what a command's arguments can be
    std::string values;     // what an option takes
};

std::string Words(const OptionEntry& option) {
    std::string words = option.takesPath ? "PATHS" : "";
    for (const std::string& choice : option.choices)
        words += (words.empty() ? "" : " ") + choice;
    return words;
}

void CollectTables(const CommandEntry& entry, Tables& tables) {
    std::string commands;
    std::string options;
    std::string arguments;
    for (const CommandEntry& below : entry.commands) {
        commands += (commands.empty() ? "" : " ") + below.name;
        CollectTables(below, tables);
    }
    for (const OptionEntry& option : entry.options) {
        for (const std::string& name : option.names) {
            options += (options.empty() ? "" : " ") + name;
            if (!option.value.empty())
                tables.values += zo::Format("        '{} {}') echo '{}' ;;\n", entry.path, name, Words(option));
        }
    }
    for (const OptionEntry& argument : entry.arguments) {
        if (arguments.empty()) arguments = Words(argument);
    }
    tables.commands += Case(entry.path, commands);
    tables.options += Case(entry.path, options);
    tables.arguments += Case(entry.path, arguments);
}

constexpr std::string_view kBashHead =
    R"script(# Completion of zoctl for bash 4 and later. In ~/.bashrc: eval "$(zoctl completion bash)"

)script";

// The path is that of the group or command which the words before the cursor name; "help" is followed by another.
constexpr std::string_view kBashFunction = R"script(
_zoctl() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} path= word words
    COMPREPLY=()
    if [ "$current" = = ]; then current=; fi
    if [ "$before" = = ]; then before=${COMP_WORDS[COMP_CWORD-2]}; fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [ "$path" = help ]; then path=; fi
        if [[ " $(_zoctl_commands "$path") " == *" $word "* ]]; then path=${path:+$path }$word; fi
    done
    if ! words=$(_zoctl_values "$path $before"); then
        if [ "${current:0:1}" = - ]; then
            words=$(_zoctl_options "$path")
        else
            if [ "$path" = help ]; then path=; fi
            words="$(_zoctl_commands "$path") $(_zoctl_arguments "$path")"
        fi
    fi
    for word in $words; do
        if [ "$word" = PATHS ]; then
            compopt -o filenames 2>/dev/null
            while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "$current")
        elif [ "${word#"$current"}" != "$word" ] || [ -z "$current" ]; then
            COMPREPLY+=("$word")
        fi
    done
}
complete -F _zoctl zoctl zoctl.exe
)script";

}  // namespace

std::string BashCompletion(const CommandEntry& tool) {
    Tables tables;
    CollectTables(tool, tables);
    const auto function = [](const char* name, const std::string& cases) {
        return zo::Format("_zoctl_{}() {{\n    case \"$1\" in\n{}        *) return 1 ;;\n    esac\n}}\n", name, cases);
    };
    return std::string(kBashHead) + function("commands", tables.commands) + function("options", tables.options) +
           function("arguments", tables.arguments) + function("values", tables.values) + std::string(kBashFunction);
}

}  // namespace zoctl
