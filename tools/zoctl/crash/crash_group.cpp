#include "crash_group.h"

#include <memory>

#include "console.h"
#include "crash_call.h"
#include "crash_checks.h"
#include "crash_history.h"
#include "crash_send.h"
#include "crash_session.h"

namespace zoctl {

namespace {

constexpr char kNoServerLimit[] =
    "Ctrl-C takes effect between dumps; a request that hangs ends only when the system's own time limits expire.";

int Execute(Output& out, const CrashOptions& options, CrashMode mode) {
    if (const Ended ended = CheckCrashOptions(out, options, mode)) return *ended;
    const bool shown = !out.Machine() && IsTerminal(Stream::kError);
    const auto progress = [&](const CrashMessage& message) {
        if (shown || message.level == ZOCRASH_LOG_ERROR) out.Hint(EscapeControls(message.text));
    };
    if (mode == CrashMode::kSend) {
        if (shown) out.Hint("Analysing the dumps before anything is sent.");
        return SendDumps(out, options, progress);
    }
    return FinishCall({out, options, mode}, RunCrashReporter(options, mode, progress));
}

void AddTargets(CLI::App& command, CrashOptions& options) {
    command
        .add_option("--target", options.targets,
                    "Name that marks a crash as ours, regardless of case; repeat for more (ZoProtector and "
                    "ZoProtectorDriver if left out)")
        ->allow_extra_args(false);  // the next word is the file of "analyse" and "upload"
}

void AddFolderOptions(CLI::App& command, CrashOptions& options) {
    command.add_option("--dumps", options.dumpFolder, "Folder of the dumps; detected if left out");
    command.add_option("--max-bytes", options.maxBytes, "Ignore larger dumps (10485760 if left out)")
        ->check(CLI::NonNegativeNumber);
}

void AddSendOptions(CLI::App& command, CrashOptions& options) {
    command.add_option("--record", options.record, "File that records the newest dump processed");
    command.add_option(
        "--journal", options.journal,
        "File that a line for each dump is added to (crash_journal.jsonl next to the record if left out)");
    command.add_option("--server", options.server, "Address of the crash server, https://HOST[:PORT]/PATH");
    command.add_option("--app-name", options.appName, "Sent as AppName");
    command.add_option("--app-version", options.appVersion, "Sent as AppVer");
    command.add_option("--lcid", options.lcid, "Sent as LCID");
    command.add_flag("--all", options.all, "Report every dump, whether a target is on its stack or not");
    command.add_flag("--pass-failed", options.passFailed,
                     "Process the other dumps even if the engine fails for one whose header is sound");
    command.add_flag("--plain", options.plain, "Send documents unscrambled");
    command.add_flag("--dry-run", options.dryRun, "Show the queries and where they would go; send and change nothing");
}

CLI::App& Add(Tool& tool, CLI::App& group, const CommandText& text, const std::shared_ptr<CrashOptions>& options,
              bool show) {
    CLI::App& command = tool.AddCommand(group, text, [options, show](Output& out) {
        const CrashMode mode = show ? CrashMode::kShow : options->dryRun ? CrashMode::kDryRun : CrashMode::kSend;
        return Execute(out, *options, mode);
    });
    AddTargets(command, *options);
    return command;
}

void AddHistory(Tool& tool, CLI::App& group) {
    const auto history = std::make_shared<HistoryOptions>();
    CLI::App& shown = tool.AddCommand(group,
                                      {"history", "Show what became of each dump, from the journal",
                                       "crash history\ncrash history --dump 1.dmp --json"},
                                      [history](Output& out) { return ShowCrashHistory(out, *history); });
    shown.add_option("--dump", history->dump, "Only this dump, by its file name");
    shown.add_option("--last", history->last, "Only the last so many entries");
    shown.add_option("--record", history->record, "The record that the journal is next to");
    shown.add_option("--journal", history->journal, "The journal's file, if it was named");
}

}  // namespace

void RegisterCrash(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "crash", "Find, analyse and report kernel crashes of the suite's drivers");
    const auto options = std::make_shared<CrashOptions>();  // of the one command that is run
    CLI::App& list = Add(tool, group,
                         {"list", "List the dumps that are new and what each matches; sends nothing",
                          "crash list\ncrash list --dumps C:\\Dumps --target storage"},
                         options, true);
    AddFolderOptions(list, *options);
    list.add_option("--record", options->record, "File that records the newest dump processed");

    Add(tool, group,
        {"analyse", "Show one dump's signature, address and matches; sends nothing", "crash analyse C:\\Dumps\\1.dmp"},
        options, true)
        .add_option("file", options->file, "The dump")
        ->required();

    CLI::App& run = Add(tool, group,
                        {"run", "Report every new dump that involves a target, each once",
                         "crash run\ncrash run --dry-run --server https://crash.example/crash"},
                        options, false);
    AddFolderOptions(run, *options);
    AddSendOptions(run, *options);
    run.footer(run.get_footer() + "\n\n" + kNoServerLimit);

    CLI::App& upload = Add(tool, group,
                           {"upload", "Report one dump, regardless of its size and of earlier reports",
                            "crash upload C:\\Dumps\\1.dmp --all"},
                           options, false);
    AddSendOptions(upload, *options);
    upload.add_option("file", options->file, "The dump")->required();
    upload.footer(upload.get_footer() + "\n\n" + kNoServerLimit);
    AddHistory(tool, group);
}

}  // namespace zoctl
