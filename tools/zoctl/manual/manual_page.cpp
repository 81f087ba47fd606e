#include "manual_page.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "exit_codes.h"
#include "format.h"

namespace zoctl {

namespace {

// Text that means nothing to the formatter: "-" stays the character of an option, and no line is taken for a request.
std::string Plain(std::string_view text) {
    std::string result;
    for (const char character : text) {
        if (character == '\\') {
            result += "\\e";
        } else if (character == '-') {
            result += "\\-";
        } else {
            result += character;
        }
    }
    return result.starts_with('.') || result.starts_with('\'') ? "\\&" + result : result;
}

std::string Header(std::string_view page, std::string_view summary, std::string_view version) {
    std::string upper(page);
    std::ranges::transform(upper, upper.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return zo::Format(".TH {} 1 \"\" \"zoctl {}\" ZoProtectorLib\n.SH NAME\n{} \\- {}\n", upper, version, Plain(page),
                      Plain(summary));
}

std::string Value(const OptionEntry& option) {
    if (option.choices.empty()) return zo::Format("\\fI{}\\fR", option.value);
    std::string choices;
    for (const std::string& choice : option.choices)
        choices += (choices.empty() ? "" : " | ") + Plain(choice);
    return choices;
}

std::string Synopsis(const CommandEntry& command) {
    std::string text = zo::Format("\\fB{}\\fR", Plain("zoctl " + command.path));
    for (const OptionEntry& option : command.options) {
        if (option.required) text += zo::Format(" \\fB{}\\fR {}", Plain(option.names.back()), Value(option));
    }
    text += " [\\fIOPTION\\fR...]";
    for (const OptionEntry& argument : command.arguments)
        text += zo::Format(" {}\\fI{}\\fR{}", argument.required ? "" : "[", Plain(argument.names[0]),
                           argument.required ? "" : "]");
    return text + "\n";
}

std::string Options(const std::vector<OptionEntry>& options) {
    std::string text;
    for (const OptionEntry& option : options) {
        if (option.description.empty()) continue;  // an argument whose name in the synopsis says all
        text += ".TP\n";
        for (const std::string& name : option.names)
            text += zo::Format("{}\\fB{}\\fR", &name == &option.names[0] ? "" : ", ", Plain(name));
        if (!option.value.empty() && option.names[0].starts_with('-')) text += " " + Value(option);
        text += "\n" + Plain(option.description) + "\n";
    }
    return text;
}

// The paragraphs under a command's help: examples as they are, sentences as text.
std::string Footer(const std::string& footer) {
    std::string text;
    bool example = false;
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        const bool begins = line == "Example:";
        if (example && line.empty()) text += ".EE\n";
        if (begins) {
            text += ".PP\nExample:\n.PP\n.EX\n";
        } else if (line.empty()) {
            text += ".PP\n";
        } else {
            text += Plain(line) + "\n";
        }
        example = (example && !line.empty()) || begins;
    }
    return example ? text + ".EE\n" : text;
}

std::string Body(const CommandEntry& command) {
    return Options(command.arguments) + Options(command.options) + Footer(command.footer);
}

// The commands of a group and of the groups in it, each under its own heading.
std::string Commands(const CommandEntry& group) {
    std::string text;
    for (const CommandEntry& command : group.commands) {
        if (!command.commands.empty()) {
            text += Commands(command);
            continue;
        }
        text += zo::Format(".SS {}\n{}.PP\n{}.\n{}", Plain(command.path), Synopsis(command), Plain(command.summary),
                           Body(command));
    }
    return text;
}

}  // namespace

std::string ToolPage(const CommandEntry& tool, std::string_view version) {
    std::string page = Header("zoctl", tool.summary, version);
    page += ".SH SYNOPSIS\n\\fBzoctl\\fR \\fIGROUP\\fR [\\fICOMMAND\\fR] [\\fIOPTION\\fR...] [\\fIARGUMENT\\fR...]\n";
    page += ".SH COMMANDS\nEach has a page of its own, such as \\fBzoctl\\-driver\\fR(1).\n";
    for (const CommandEntry& command : tool.commands)
        page += zo::Format(".TP\n\\fB{}\\fR\n{}\n", Plain(command.name), Plain(command.summary));
    page += ".SH OPTIONS\n" + Options(tool.options) + ".SH EXIT STATUS\n";
    for (const ExitCodeRow& row : ExitCodeTable())
        page += zo::Format(".TP\n\\fB{}\\fR\n{}\n", Plain(row.code), Plain(row.meaning));
    return page;
}

std::string CommandPage(const CommandEntry& command, std::string_view version) {
    std::string page = Header("zoctl-" + command.name, command.summary, version);
    if (command.commands.empty())
        return page + ".SH SYNOPSIS\n" + Synopsis(command) + ".SH OPTIONS\n" + Body(command) +
               ".SH SEE ALSO\n\\fBzoctl\\fR(1)\n";
    return page +
           zo::Format(".SH SYNOPSIS\n\\fBzoctl {}\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR...]\n", Plain(command.name)) +
           ".SH COMMANDS\n" + Commands(command) + ".SH SEE ALSO\n\\fBzoctl\\fR(1)\n";
}

}  // namespace zoctl
