#include "command_tree.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "format.h"

namespace zoctl {

namespace {

std::vector<std::string> Split(const std::string& list) {
    std::vector<std::string> words;
    std::istringstream text(list);
    for (std::string word; std::getline(text, word, ',');)
        words.push_back(word);
    return words;
}

// The parser keeps these by address; pages must not change from run to run.
std::string Others(const char* relation, const std::set<CLI::Option*>& options) {
    std::set<std::string> names;
    for (const CLI::Option* option : options)
        names.insert(option->get_name());
    std::string text;
    for (const std::string& name : names)
        text += zo::Format("; {} {}", relation, name);
    return text;
}

OptionEntry ReadOption(const CLI::Option& option) {
    OptionEntry entry{.required = option.get_required()};
    for (const std::string& name : option.get_snames())
        entry.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        entry.names.push_back("--" + name);
    if (option.get_positional()) entry.names = {option.get_name()};
    entry.description = option.get_description();
    // "TEXT", "UINT:INT in [0 - 3600]", "TEXT:{boot,system}"
    const std::string type = option.get_type_name();
    std::smatch found;
    if (option.get_items_expected_max() > 0) entry.value = type.starts_with("TEXT") ? "TEXT" : "NUMBER";
    if (std::regex_search(type, found, std::regex("\\{(.*)\\}"))) entry.choices = Split(found[1]);
    if (std::regex_search(type, found, std::regex("in \\[(\\d+) - (\\d+)\\]")))
        entry.description += zo::Format("; {} to {}", found[1].str(), found[2].str());
    if (!option.get_default_str().empty())
        entry.description += zo::Format("; {} if left out", option.get_default_str());
    entry.description += Others("needs", option.get_needs()) + Others("excludes", option.get_excludes());
    entry.takesPath = type == "TEXT";
    return entry;
}

void ReadOptions(const CLI::App& app, CommandEntry& entry) {
    const bool nameless = app.get_name().empty();  // its own --help is never asked for
    for (const CLI::Option* option :
         app.get_options([&](const CLI::Option* one) { return !nameless || one != app.get_help_ptr(); }))
        (option->get_positional() ? entry.arguments : entry.options).push_back(ReadOption(*option));
}

void Read(const CLI::App& app, CommandEntry& entry) {
    ReadOptions(app, entry);
    for (const CLI::App* below : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (below->get_name().empty()) {
            ReadOptions(*below, entry);  // a group of options of which one must be given
            continue;
        }
        CommandEntry command{.path = entry.path.empty() ? below->get_name() : entry.path + " " + below->get_name(),
                             .name = below->get_name(),
                             .summary = below->get_description(),
                             .footer = below->get_footer()};
        Read(*below, command);
        entry.commands.push_back(std::move(command));
    }
}

}  // namespace

CommandEntry ReadCommands(const CLI::App& tool) {
    CommandEntry entry{.name = tool.get_name(), .summary = tool.get_description(), .footer = tool.get_footer()};
    Read(tool, entry);
    return entry;
}

}  // namespace zoctl
