#include <memory>

#include "command_shapes.h"

#include "channel.h"
#include "format.h"
#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

// Sends one command and reports it. call gets the channel already open.
int Send(Output& out, const std::function<std::int32_t()>& call, const std::string& what, const std::string& done,
         const Json& facts, Subject subject = Subject::kAny) {
    const Channel channel;
    if (const Ended ended = channel.Check(out)) return *ended;
    return out.Report(call(), subject, what, done, facts);
}

Subject SubjectOf(const char* kind) {
    return std::string_view(kind) == "key" ? Subject::kKey : Subject::kRule;
}

struct NameOptions {
    std::string name;
    bool recursive = false;
    bool isFolder = false;
};

}  // namespace

void AddPlainCommand(Tool& tool, CLI::App& group, const CommandText& text, std::int32_t (*call)(), const char* what,
                     const char* done) {
    tool.AddCommand(group, text, [=](Output& out) { return Send(out, call, what, done, Json::object()); });
}

void AddNameCommand(Tool& tool, CLI::App& group, const CommandText& text, const char* kind,
                    std::int32_t (*call)(const wchar_t*), const char* what, const char* done,
                    std::optional<Subject> subject) {
    const auto options = std::make_shared<NameOptions>();
    tool.AddCommand(group, text,
                    [=](Output& out) {
                        const std::wstring name = zo::WideFromUtf8(options->name);
                        return Send(
                            out, [&] { return call(name.c_str()); }, zo::Format("{} {}", what, Quote(options->name)),
                            zo::Format("{} {}.", done, Quote(options->name)), {{kind, options->name}},
                            subject.value_or(SubjectOf(kind)));
                    })
        .add_option(kind, options->name)
        ->required();
}

void AddRecursiveCommand(Tool& tool, CLI::App& group, const CommandText& text, const char* kind,
                         std::int32_t (*call)(const wchar_t*, std::uint32_t), const char* what, const char* done) {
    const auto options = std::make_shared<NameOptions>();
    CLI::App& command = tool.AddCommand(group, text, [=](Output& out) {
        const std::wstring name = zo::WideFromUtf8(options->name);
        return Send(
            out, [&] { return call(name.c_str(), options->recursive); },
            zo::Format("{} {}", what, Quote(options->name)),
            zo::Format("{} {}{}.", done, Quote(options->name), options->recursive ? " and all below it" : ""),
            {{kind, options->name}, {"recursive", options->recursive}}, SubjectOf(kind));
    });
    command.add_option(kind, options->name)->required();
    command.add_flag("-r,--recursive", options->recursive, "Include everything below it");
}

void AddIgnoreGroup(Tool& tool, CLI::App& parent, const IgnoreListExports& exports) {
    const std::string above = parent.get_name();
    CLI::App& group =
        tool.AddGroup(parent, "ignore", "Processes exempt from the filter (the list cannot be read back)");
    const auto options = std::make_shared<NameOptions>();
    const std::string example =
        above + " ignore add C:\\Suite\\update.exe\n" + above + " ignore add C:\\Suite\\tools --folder --recursive";
    CLI::App& add = tool.AddCommand(
        group, {"add", "Exempt a process, or every process from a folder, from the filter", example.c_str()},
        [options, exports](Output& out) {
            const std::wstring name = zo::WideFromUtf8(options->name);
            return Send(
                out, [&] { return exports.add(name.c_str(), options->isFolder, options->recursive); },
                "exempt " + Quote(options->name), "Exempted " + Quote(options->name) + ".",
                {{"path", options->name}, {"folder", options->isFolder}, {"recursive", options->recursive}},
                Subject::kExempt);
        });
    add.add_option("path", options->name, "The process's image file, or a folder with --folder")->required();
    CLI::Option* folder = add.add_flag("--folder", options->isFolder, "The path is a folder of images");
    add.add_flag("-r,--recursive", options->recursive, "Include its subfolders")->needs(folder);
    const std::string remove = above + " ignore remove C:\\Suite\\update.exe";
    AddNameCommand(tool, group, {"remove", "Remove a process's exemption", remove.c_str()}, "path", exports.remove,
                   "remove the exemption of", "No longer exempt:", Subject::kExempt);
    const std::string clear = above + " ignore clear";
    AddPlainCommand(tool, group, {"clear", "Empty the list", clear.c_str()}, exports.clear, "empty the list",
                    "The list is empty.");
}

void AddSwitchCommands(Tool& tool, CLI::App& group, std::int32_t (*call)(std::int32_t), const char* of) {
    for (const bool on : {true, false}) {
        const char* name = on ? "enable" : "disable";
        const std::string summary = zo::Format("Switch {} {}", of, on ? "on" : "off; the rules stay");
        const std::string example = zo::Format("{} {}", group.get_name(), name);
        tool.AddCommand(group, {name, summary.c_str(), example.c_str()}, [call, on, of](Output& out) {
            return Send(out, [&] { return call(on); }, zo::Format("switch {}", of),
                        zo::Format("The switch of {} is {}.", of, on ? "on" : "off"), {{"enabled", on}});
        });
    }
}

}  // namespace zoctl
