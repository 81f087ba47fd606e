#pragma once

// How a command is declared: its place in the tree of groups, its words and its action. The parser only chooses; the
// action runs afterwards, so that a wrong command line never does half a job.

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

#include "output.h"

namespace zoctl {

struct CommandText {
    const char* name;
    const char* summary;  // one sentence, shown in the list of commands and over its help
    const char* example;  // a whole command line, or several lines, without "zoctl"
};

class Tool {
  public:
    explicit Tool(CLI::App& root);

    // "zoctl NAME ..." or, below another group, "zoctl file NAME ...".
    CLI::App& AddGroup(CLI::App& parent, const char* name, const char* summary);
    // Every command gets --json. What its options fill must live as long as the tool: hold it in a shared_ptr that the
    // action holds too.
    CLI::App& AddCommand(CLI::App& parent, const CommandText& text, Action action);
    // Adds --jsonl to a command whose output is a stream.
    void AllowJsonLines(CLI::App& command);

    // What the command writes with --json and without other options, for a command that collects the answers of others.
    [[nodiscard]] std::string DocumentOf(const std::string& name) const;

    [[nodiscard]] int Run(const std::vector<std::string>& commandLine);

  private:
    [[nodiscard]] int ReportUsage(const CLI::ParseError& error, const std::vector<std::string>& arguments);

    CLI::App& root_;
    std::map<std::string, Action> actions_;  // by the command's words
    Action chosen_;
    std::string chosenName_;
    bool json_ = false;
    bool jsonLines_ = false;
};

}  // namespace zoctl
