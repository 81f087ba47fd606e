#pragma once

// simctl's commands: what the command line says about each, and what it does.

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "output.h"

namespace simctl {

class Tool {
  public:
    explicit Tool(CLI::App& app) : app_(app) {}

    // A command; examples are lines without "simctl". action runs after all of the command line has been understood.
    CLI::App& Add(const char* name, const char* summary, const char* examples, std::function<Answer()> action);

    // A command with options: declare() adds them to the command, and they keep their values until action() runs.
    template <typename Options>
    void Add(const char* name, const char* summary, const char* examples, void (*declare)(CLI::App&, Options&),
             Answer (*action)(const Options&)) {
        const auto options = std::make_shared<Options>();
        declare(Add(name, summary, examples, [options, action] { return action(*options); }), *options);
    }

    // Runs the command that the command line names; returns the exit code.
    int Run(std::span<char*> words);

  private:
    int ReportUsage(const CLI::ParseError& error, std::span<char*> words) const;

    CLI::App& app_;
    bool json_ = false;
    std::string chosenName_;
    std::function<Answer()> chosen_;
};

void AddShowCommands(Tool& tool);
void AddChangeCommands(Tool& tool);
void AddFaultCommands(Tool& tool);

}  // namespace simctl
