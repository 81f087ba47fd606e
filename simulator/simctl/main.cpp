// simctl: drives the simulator's control device from the command line, for demonstrations, for tests written as scripts
// and for trying by hand how a program behaves when the driver misbehaves.

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <span>
#include <sstream>
#include <string_view>

#include "command.h"
#include "failure.h"
#include "format.h"
#include "simulator_client.h"

namespace simctl {

namespace {

constexpr char kSummary[] =
    "Shows what reached the simulator driver and changes how it answers. The simulator enforces nothing.";
constexpr char kFooter[] =
    "Numbers are decimal or 0x hexadecimal. \"simctl names\" lists the names of tables, driver commands, statuses and\n"
    "counters. \"simctl COMMAND --help\" shows a command's options and examples.\n"
    "Everything that is set lasts until \"simctl reset\" or until the driver stops.\n"
    "Exit codes: 0 done, 1 the driver refused, 2 usage, 3 no simulator is running.";

}  // namespace

CLI::App& Tool::Add(const char* name, const char* summary, const char* examples, std::function<Answer()> action) {
    CLI::App& command = *app_.add_subcommand(name, summary);
    std::istringstream lines(examples);
    std::string footer = "Examples:";
    for (std::string line; std::getline(lines, line);)
        footer += "\n  simctl " + line;
    command.footer(footer);
    command.add_flag("--json", json_, "Print one JSON document");
    command.final_callback([this, name, action = std::move(action)] {
        chosenName_ = name;
        chosen_ = action;
    });
    return command;
}

int Tool::ReportUsage(const CLI::ParseError& error, std::span<char*> words) const {
    // The parser may have stopped before it reached --json.
    const bool json = std::any_of(words.begin(), words.end(), [](std::string_view word) { return word == "--json"; });
    const auto reached = app_.get_subcommands();
    if (!reached.empty()) {
        const std::string name = reached.front()->get_name();
        return ReportFailure(name, json, kUsage, zo::Format("{}; see \"simctl {} --help\"", error.what(), name));
    }
    // The parser reports an unknown command as a missing one.
    const bool unknown = words.size() > 1 && words[1][0] != '-';
    const std::string reason = unknown ? zo::Format("unknown command '{}'", words[1]) : error.what();
    return ReportFailure("", json, kUsage, reason + "; see \"simctl --help\"");
}

int Tool::Run(std::span<char*> words) {
    try {
        app_.parse(static_cast<int>(words.size()), words.data());
        return Report(chosenName_, json_, chosen_());
    } catch (const CLI::Success& help) {
        return app_.exit(help);
    } catch (const CLI::ParseError& error) {
        return ReportUsage(error, words);
    } catch (const Failure& failure) {
        return ReportFailure(chosenName_, json_, failure.exitCode, failure.message);
    } catch (const zosim::SimulatorError& error) {
        if (error.error != ERROR_FILE_NOT_FOUND) return ReportFailure(chosenName_, json_, kRefused, error.what());
        return ReportFailure(chosenName_, json_, kNoSimulator,
                             "no simulator is running; start its driver with \"zoctl driver start\"");
    }
}

namespace {

int Main(std::span<char*> words) {
    CLI::App app(kSummary, "simctl");
    app.footer(kFooter);
    app.set_help_flag("-h,--help", "Show this help");
    app.require_subcommand(1);
    app.allow_windows_style_options(false);
    Tool tool(app);
    AddShowCommands(tool);
    AddChangeCommands(tool);
    AddFaultCommands(tool);
    return tool.Run(words);
}

}  // namespace
}  // namespace simctl

int main(int argc, char** argv) {
    _setmode(_fileno(stdout), _O_BINARY);  // no carriage returns for the scripts that read it
    try {
        return simctl::Main({argv, static_cast<std::size_t>(argc)});
    } catch (const std::exception& error) {  // such as memory that has run out
        std::fprintf(stderr, "simctl: %s\n", error.what());
        return simctl::kRefused;
    }
}
