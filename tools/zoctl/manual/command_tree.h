#pragma once

// zoctl's commands as plain data, read from the parser that declares them: what manual pages and completions are made
// of, so that they never say something else than --help.

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zoctl {

struct OptionEntry {
    std::vector<std::string> names{};    // "-r" and "--recursive"; of an argument its name alone
    std::string value{};                 // the kind of value that it takes: "TEXT", "NUMBER"; "" for a switch
    std::vector<std::string> choices{};  // the only values, when there are few
    bool takesPath = false;              // any text: most of these are files or folders
    bool required = false;
    std::string description{};  // with limits, default and the options that it needs or excludes
};

struct CommandEntry {
    std::string path{};  // "driver install"; "" for the tool itself
    std::string name{};
    std::string summary{};
    std::string footer{};  // paragraphs; one of them begins with the line "Example:"
    std::vector<OptionEntry> options{};
    std::vector<OptionEntry> arguments{};
    std::vector<CommandEntry> commands{};  // of a group
};

[[nodiscard]] CommandEntry ReadCommands(const CLI::App& tool);

}  // namespace zoctl
