#include "command.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "console.h"
#include "format.h"
#include "input_file.h"
#include "suggestion.h"

namespace zoctl {

namespace {

std::string ExampleFooter(const char* example) {
    std::istringstream lines(example);
    std::string footer = "Example:";
    for (std::string line; std::getline(lines, line);)
        footer += "\n  zoctl " + line;
    return footer;
}

std::string PathOf(const CLI::App& command) {
    const CLI::App* parent = command.get_parent();
    if (!parent) return {};
    const std::string above = PathOf(*parent);
    return above.empty() ? command.get_name() : above + " " + command.get_name();
}

// Not the groups of options, which the parser takes for commands without a name.
std::vector<const CLI::App*> CommandsBelow(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* below) { return !below->get_name().empty(); });
}

// Where a command line leads: the innermost group or command that it names, and the word at which that ended because
// the group has no such command; "" when there is no such word.
struct Way {
    const CLI::App* reached;
    std::string unknown{};
};

Way Follow(const CLI::App& root, const std::vector<std::string>& arguments) {
    const CLI::App* app = &root;
    for (const std::string& argument : arguments) {
        const auto below = CommandsBelow(*app);
        if (below.empty()) break;  // a command: its own arguments follow
        if (argument.starts_with('-')) continue;
        const auto named =
            std::ranges::find_if(below, [&](const CLI::App* one) { return one->get_name() == argument; });
        if (named == below.end()) return {app, argument};
        app = *named;
    }
    return {app};
}

std::vector<std::string> NamesBelow(const CLI::App& group) {
    std::vector<std::string> names;
    for (const CLI::App* command : CommandsBelow(group))
        names.push_back(command->get_name());
    return names;
}

std::string UnknownCommand(const Way& way) {
    const std::string known = ClosestName(way.unknown, NamesBelow(*way.reached));
    return zo::Format("unknown command {}{}", Quote(way.unknown),
                      known.empty() ? "" : zo::Format("; did you mean '{}'?", known));
}

// Other ways to ask for help, which people try: "zoctl help driver install", "zoctl driver /?".
std::vector<std::string> WithHelpFlag(std::vector<std::string> arguments) {
    const bool options = std::ranges::any_of(arguments, [](const std::string& one) { return one.starts_with('-'); });
    if (!arguments.empty() && arguments.front() == "help" && !options) {  // else it is the command of that name
        std::ranges::rotate(arguments, arguments.begin() + 1);
        arguments.back() = "--help";
    }
    std::ranges::replace(arguments, std::string("/?"), std::string("--help"));
    return arguments;
}

int Perform(const Action& action, Output& out) {
    try {
        return action(out);
    } catch (const std::bad_alloc&) {
        return out.Fail(static_cast<std::int32_t>(0x8007000Eu), Subject::kAny, "finish");
    } catch (const std::filesystem::filesystem_error& error) {
        return RefuseFolder(out, error);
    } catch (const std::exception& error) {
        return out.Refuse(kExitFailed, "An unexpected error ended the command: " + EscapeControls(error.what()),
                          "Run it again; if it fails again, report it with the file of \"zoctl doctor --bundle\".");
    }
}

}  // namespace

Tool::Tool(CLI::App& root) : root_(root) {
    root.require_subcommand(1);  // and no more: a path called "status" stays a path
    root.allow_windows_style_options(false);
    root.set_help_flag("-h,--help", "Show this help");
}

CLI::App& Tool::AddGroup(CLI::App& parent, const char* name, const char* summary) {
    CLI::App& group = *parent.add_subcommand(name, summary);
    group.require_subcommand(1);
    group.footer("\"zoctl " + PathOf(group) + " COMMAND --help\" shows a command's options and an example.");
    return group;
}

CLI::App& Tool::AddCommand(CLI::App& parent, const CommandText& text, Action action) {
    CLI::App& command = *parent.add_subcommand(text.name, text.summary);
    command.footer(ExampleFooter(text.example));
    command.add_flag("--json", json_, "One JSON document on standard output, hints on standard error");
    actions_[PathOf(command)] = action;
    command.final_callback([this, &command, action = std::move(action)] {
        chosen_ = action;
        chosenName_ = PathOf(command);
    });
    return command;
}

void Tool::AllowJsonLines(CLI::App& command) {
    command.add_flag("--jsonl", jsonLines_, "One JSON object per line, written as things happen")
        ->excludes(command.get_option("--json"));
}

int Tool::ReportUsage(const CLI::ParseError& error, const std::vector<std::string>& arguments) {
    // The parser may have stopped before it came to the options that choose the form.
    const auto given = [&arguments](const char* option) {
        return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
    };
    const Way way = Follow(root_, arguments);
    const std::string path = PathOf(*way.reached);
    Output out(path, given("--jsonl")  ? OutputMode::kJsonLines
                     : given("--json") ? OutputMode::kJson
                                       : OutputMode::kText);
    return out.Refuse(
        kExitUsage, way.unknown.empty() ? EscapeControls(error.what()) : UnknownCommand(way),
        path.empty() ? "\"zoctl --help\" shows the commands." : "\"zoctl " + path + " --help\" shows what it accepts.");
}

int Tool::Run(const std::vector<std::string>& commandLine) {
    const std::vector<std::string> arguments = WithHelpFlag(commandLine);
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        // Otherwise --help would show the help of the group that has no such command.
        if (!Follow(root_, arguments).unknown.empty()) throw CLI::ExtrasError(arguments);
        root_.parse(reversed);
    } catch (const CLI::Success& success) {  // --help and --version
        std::ostringstream text;
        std::ostringstream unused;
        root_.exit(success, text, unused);
        return Write(Stream::kOut, text.str()) ? kExitDone : kExitFailed;
    } catch (const CLI::ParseError& error) {
        return ReportUsage(error, arguments);
    }
    Output out(chosenName_, jsonLines_ ? OutputMode::kJsonLines : json_ ? OutputMode::kJson : OutputMode::kText);
    out.PrepareForCtrlC();
    return Perform(chosen_, out);
}

std::string Tool::DocumentOf(const std::string& name) const {
    std::string document;
    Output out(name, OutputMode::kJson, document);
    static_cast<void>(Perform(actions_.at(name), out));  // the document has the exit code
    return document;
}

}  // namespace zoctl
