#include <algorithm>

#include "console.h"
#include "crash_group.h"
#include "crash_session.h"
#include "errors.h"
#include "format.h"
#include "text.h"

namespace zoctl {

namespace {

constexpr char kNoServerLimit[] =
    "Ctrl-C takes effect between dumps; a request that hangs ends only when the system's own time limits expire.";

// The counters and what they leave over, so that they add up: found = notAnalysed + notSelected + notReached +
// selected; selected = accepted + alreadyKnown + queriesFailed + heldBack; accepted = uploaded + uploadsFailed.
struct Tally {
    explicit Tally(const CrashResult& result)
        : stats(result.stats),
          heldBack(result.heldBack),
          queriesFailed(stats.queriesFailed - std::min(heldBack, stats.queriesFailed)) {
        for (const CrashDumpLine& dump : result.dumps) {
            if (!dump.matched.empty()) ++matched;
            if (!dump.failure.empty()) {
                ++notAnalysed;
            } else if (!dump.selected) {
                ++notSelected;
            }
        }
        const std::uint32_t reached = notAnalysed + notSelected + stats.dumpsSelected;
        notReached = stats.dumpsFound > reached ? stats.dumpsFound - reached : 0;
    }

    [[nodiscard]] Json ToJson() const {
        return {{"found", stats.dumpsFound},
                {"notAnalysed", notAnalysed},
                {"notSelected", notSelected},
                {"notReached", notReached},
                {"selected", stats.dumpsSelected},
                {"accepted", stats.queriesAccepted},
                {"alreadyKnown", stats.queriesAlreadyKnown},
                {"queriesFailed", queriesFailed},
                {"heldBack", heldBack},
                {"uploaded", stats.uploadsSucceeded},
                {"uploadsFailed", stats.uploadsFailed}};
    }

    const ZoCrashRunStats& stats;
    std::uint32_t heldBack;
    std::uint32_t queriesFailed;
    std::uint32_t matched = 0;
    std::uint32_t notAnalysed = 0;
    std::uint32_t notSelected = 0;
    std::uint32_t notReached = 0;
};

// What became of a selected dump. The library counts and does not name, so that this is certain only where all selected
// dumps of the call came to the same end.
std::string CountersInWords(const ZoCrashRunStats& stats) {
    const std::uint32_t all = stats.dumpsSelected;
    if (stats.uploadsSucceeded == all) return "sent";
    if (stats.queriesAlreadyKnown == all) return "not sent: the server knows this crash";
    if (stats.queriesFailed == all) return "not sent: the query was not answered, or refused";
    if (stats.uploadsFailed == all) return "not sent: the upload failed";
    return "see the counters";
}

std::string DumpOutcome(const CrashDumpLine& dump, const CrashResult& result, CrashMode mode) {
    if (!dump.failure.empty()) return "not sent: could not be analysed (" + dump.failure + ")";
    if (!dump.selected) return "not sent: concerns no target driver";
    if (mode == CrashMode::kDryRun) return "would be asked about";
    return mode == CrashMode::kShow ? "" : CountersInWords(result.stats);
}

std::string FileName(const std::string& path) {
    return path.substr(path.find_last_of("\\/") + 1);
}

std::string Value(const std::string& document, const std::string& field) {
    const std::string open = "\r\n<" + field + ">";
    const std::size_t start = document.find(open);
    if (start == std::string::npos) return "";
    return document.substr(start + open.size(), document.find("</" + field + ">", start) - start - open.size());
}

Json DumpsJson(const CrashResult& result, CrashMode mode) {
    Json dumps = Json::array();
    for (const CrashDumpLine& dump : result.dumps) {
        Json entry = {{"path", dump.path}, {"matched", dump.matched}};
        if (!dump.failure.empty()) entry["failure"] = dump.failure;
        if (!dump.document.empty()) {
            entry["signature"] = Value(dump.document, "CrashSignature");
            entry["address"] = Value(dump.document, "ErrAddr");
        }
        if (mode == CrashMode::kDryRun && !dump.document.empty()) entry["query"] = dump.document;
        if (mode != CrashMode::kShow) entry["outcome"] = DumpOutcome(dump, result, mode);
        dumps.push_back(entry);
    }
    return dumps;
}

void ShowDumps(Output& out, const CrashResult& result, CrashMode mode) {
    if (result.dumps.empty()) return;
    const bool show = mode == CrashMode::kShow;
    TextTable table(show ? std::vector<std::string>{"DUMP", "MATCHED", "SIGNATURE", "ADDRESS"}
                         : std::vector<std::string>{"DUMP", "MATCHED", "OUTCOME"});
    for (const CrashDumpLine& dump : result.dumps) {
        std::string matched;
        for (const std::string& name : dump.matched)
            matched += (matched.empty() ? "" : "|") + name;
        if (matched.empty()) matched = "-";
        if (!show) {
            table.Add({FileName(dump.path), matched, DumpOutcome(dump, result, mode)});
        } else if (!dump.failure.empty()) {
            table.Add({FileName(dump.path), "-", "could not be analysed (" + dump.failure + ")", ""});
        } else {
            table.Add({FileName(dump.path), matched, Value(dump.document, "CrashSignature"),
                       Value(dump.document, "ErrAddr")});
        }
    }
    out.Table(table);
}

// The documents in full, line by line, as they would go into the scrambler.
void ShowQueries(Output& out, const CrashResult& result, const std::string& server) {
    for (const CrashDumpLine& dump : result.dumps) {
        if (dump.document.empty()) continue;
        out.Text(zo::Format("\nQuery for {}, to {}:\n", EscapeControls(FileName(dump.path)), EscapeControls(server)));
        std::size_t at = 0;
        for (std::size_t end; (end = dump.document.find("\r\n", at)) != std::string::npos; at = end + 2) {
            out.Text("  " + EscapeControls(dump.document.substr(at, end - at)) + "\n");
        }
    }
}

std::string Summary(const Tally& tally, CrashMode mode) {
    if (mode != CrashMode::kSend) {
        const std::string chosen = mode == CrashMode::kShow
                                       ? zo::Format("{} match a target", tally.matched)
                                       : zo::Format("{} would be asked about", tally.stats.dumpsSelected);
        return zo::Format("{} new, {} could not be analysed, {}. Nothing was sent and the record was not changed.",
                          tally.stats.dumpsFound, tally.notAnalysed, chosen);
    }
    return zo::Format("{} new, {} selected; {} sent, {} known to the server, {} queries and {} uploads failed.",
                      tally.stats.dumpsFound, tally.stats.dumpsSelected, tally.stats.uploadsSucceeded,
                      tally.stats.queriesAlreadyKnown, tally.queriesFailed, tally.stats.uploadsFailed);
}

// A cancel that comes before the first dump moves nothing on, as does an engine that cannot be set up.
const char* AfterCancel(const CrashResult& result, const Tally& tally, CrashMode mode) {
    const bool gotToDumps = tally.stats.dumpsFound > 0 && (result.status >= 0 || result.status == zo::kAborted);
    if (mode != CrashMode::kSend || !gotToDumps) return "The record was not changed; run it again.";
    if (tally.notReached == 0) return "Every dump was processed.";
    return "Dumps that were not reached are not offered again; send one with \"zoctl crash upload\".";
}

int Finish(Output& out, const CrashOptions& options, const CrashResult& result, CrashMode mode) {
    const Tally tally(result);
    Json facts = {{"server", CrashServer(options)},
                  {"sent", mode == CrashMode::kSend},
                  {"dumps", DumpsJson(result, mode)},
                  {"counters", tally.ToJson()},
                  {"messages", Json::array()}};
    for (const CrashMessage& message : result.messages)
        facts["messages"].push_back({{"level", message.level}, {"text", message.text}});

    ShowDumps(out, result, mode);
    if (mode == CrashMode::kDryRun || (mode == CrashMode::kShow && !options.file.empty())) {
        ShowQueries(out, result, CrashServer(options));
    }
    if (result.cancelled) {
        return out.Refuse(kExitCancelled, "Cancelled. " + Summary(tally, mode), AfterCancel(result, tally, mode),
                          facts);
    }
    const std::string what = options.file.empty() ? "go through the dumps" : "report " + Quote(options.file);
    if (result.status < 0) return out.Fail(result.status, Subject::kCrash, what, facts);

    const bool failed = tally.notAnalysed + tally.queriesFailed + tally.stats.uploadsFailed > 0;
    const std::string sentence = Summary(tally, mode);
    return failed ? out.Found(kExitFailed, sentence, facts) : out.Done(sentence, facts);
}

int Execute(Output& out, const CrashOptions& options, CrashMode mode) {
    const bool progress = !out.Machine() && IsTerminal(Stream::kError);
    const CrashResult result = RunCrashReporter(options, mode, [&](const CrashMessage& message) {
        if (progress || message.level == ZOCRASH_LOG_ERROR) out.Hint(EscapeControls(message.text));
    });
    return Finish(out, options, result, mode);
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
    command.add_option("--server", options.server, "Address of the crash server, https://HOST[:PORT]/PATH");
    command.add_option("--app-name", options.appName, "Sent as AppName");
    command.add_option("--app-version", options.appVersion, "Sent as AppVer");
    command.add_option("--lcid", options.lcid, "Sent as LCID");
    command.add_flag("--all", options.all, "Report every dump, whether a target is on its stack or not");
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

}  // namespace

void RegisterCrash(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "crash", "Find, analyse and report kernel crashes of the suite's drivers");
    auto options = std::make_shared<CrashOptions>();
    CLI::App& list = Add(tool, group,
                         {"list", "List the dumps that are new and what each matches; sends nothing",
                          "crash list\ncrash list --dumps C:\\Dumps --target storage"},
                         options, true);
    AddFolderOptions(list, *options);
    list.add_option("--record", options->record, "File that records the newest dump processed");

    options = std::make_shared<CrashOptions>();
    Add(tool, group,
        {"analyse", "Show one dump's signature, address and matches; sends nothing", "crash analyse C:\\Dumps\\1.dmp"},
        options, true)
        .add_option("file", options->file, "The dump")
        ->required();

    options = std::make_shared<CrashOptions>();
    CLI::App& run = Add(tool, group,
                        {"run", "Report every new dump that involves a target, each once",
                         "crash run\ncrash run --dry-run --server https://crash.example/crash"},
                        options, false);
    AddFolderOptions(run, *options);
    AddSendOptions(run, *options);
    run.footer(run.get_footer() + "\n\n" + kNoServerLimit);

    options = std::make_shared<CrashOptions>();
    CLI::App& upload = Add(tool, group,
                           {"upload", "Report one dump, regardless of its size and of earlier reports",
                            "crash upload C:\\Dumps\\1.dmp --all"},
                           options, false);
    AddSendOptions(upload, *options);
    upload.add_option("file", options->file, "The dump")->required();
    upload.footer(upload.get_footer() + "\n\n" + kNoServerLimit);
}

}  // namespace zoctl
