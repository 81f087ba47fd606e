// "zoctl rules": the tables listed, and the whole wanted rule set in one file.

#include <windows.h>
#include <algorithm>

#include "channel.h"
#include "console.h"
#include "driver_tables.h"
#include "files.h"
#include "format.h"
#include "groups.h"
#include "owned_handles.h"
#include "rule_report.h"
#include "rule_steps.h"
#include "system_names.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

namespace {

constexpr const char* kUnreadableNote =
    "Ignore lists, signature overrides and the switches of the file filter and the DLL filter cannot be read back.";

// ---- list

int ListTables(Output& out, const std::vector<Table>& tables) {
    const SystemNames names;
    Json facts = Json::object();
    for (const Table table : tables) {
        TableContents contents;
        const std::int32_t status = ReadTable(table, contents);
        if (status < 0) {
            return out.Fail(status, Subject::kRule, zo::Format("read the {} table", TableName(table)), facts);
        }
        out.Text(zo::Format("{} rules: {}\n", TableName(table), contents.total));
        if (!contents.rules.empty()) out.Table(RuleTable(table, contents.rules, names));
        for (const std::string& entry : contents.unknown)
            out.Text(zo::Format("entry of unknown form: {}\n", entry));
        facts[TableName(table)] = TableJson(table, contents.rules, names);
        facts[TableName(table)]["unknownEntries"] = contents.unknown;
    }
    return out.Done("", {{"tables", facts}});
}

void AddList(Tool& tool, CLI::App& group) {
    const auto only = std::make_shared<std::string>();
    tool.AddCommand(group,
                    {"list", "Show the rules that the driver holds, in its own names and as drive paths",
                     "rules list\nrules list --table file --json"},
                    [only](Output& out) {
                        std::vector<Table> tables;
                        for (const Table table : kAllTables) {
                            if (only->empty() || *only == TableName(table)) tables.push_back(table);
                        }
                        return WithDriver(out, [&] { return ListTables(out, tables); });
                    })
        .add_option("--table", *only, "Only this table")
        ->check(CLI::IsMember({"process", "file", "registry", "dll"}));
}

// ---- export

// Beside the target first, then in its place, so that a failure leaves no half file. 0 or the Win32 error.
DWORD WriteWholeFile(const std::string& path, std::string_view bytes, bool replace) {
    const std::wstring target = zo::WideFromUtf8(path);
    const std::wstring staging = target + L".new";
    {
        const zo::OwnedFile file(
            CreateFileW(staging.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) return GetLastError();
        DWORD written = 0;
        if (!WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
            return GetLastError();
        }
    }
    if (MoveFileExW(staging.c_str(), target.c_str(), replace ? MOVEFILE_REPLACE_EXISTING : 0)) return 0;
    const DWORD error = GetLastError();
    DeleteFileW(staging.c_str());  // left behind it would only confuse
    return error;
}

int Export(Output& out, const std::string& path, bool force) {
    DriverState state;
    std::string what;
    if (const std::int32_t status = ReadDriverState(state, what); status < 0) {
        return out.Fail(status, Subject::kRule, what);
    }
    std::vector<std::string> leftOut;
    const std::string text =
        WriteRuleFile(state, SystemNames(), leftOut).dump(4, ' ', false, Json::error_handler_t::replace) + "\n";
    for (const std::string& sentence : leftOut)
        out.Hint("Left out: " + sentence + ".");
    out.Hint(std::string(kUnreadableNote) + " The file leaves them out.");
    if (path.empty()) {
        if (!Write(Stream::kOut, text)) return kExitFailed;
        return leftOut.empty() ? kExitDone : kExitFailed;
    }
    const DWORD error = WriteWholeFile(path, text, force);
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) {
        return out.Refuse(kExitExists, "The file " + Quote(path) + " exists already.", "Give --force to replace it.");
    }
    if (error) return out.Fail(ZOP_STATUS_FROM_WIN32(error), Subject::kAny, "write " + Quote(path));
    const Json facts = {{"file", path}, {"leftOut", leftOut}};
    if (leftOut.empty()) return out.Done("The rules are written to " + Quote(path) + ".", facts);
    return out.Refuse(kExitFailed, "The file was written, but it does not hold every rule.",
                      "Look at the rules left out; they can only be cleared.", facts);
}

void AddExport(Tool& tool, CLI::App& group) {
    const auto path = std::make_shared<std::string>();
    const auto force = std::make_shared<bool>(false);
    CLI::App& command = tool.AddCommand(
        group,
        {"export", "Write what the driver holds as a rule file; to standard output without FILE",
         "rules export C:\\Suite\\rules.json"},
        [path, force](Output& out) { return WithDriver(out, [&] { return Export(out, *path, *force); }); });
    command.add_option("file", *path);
    command.add_flag("--force", *force, "Replace an existing file");
}

// ---- check, diff, apply

// Reads and checks the file, then goes on; with mistakes it tells all of them and does not.
int WithRuleFile(Output& out, const std::string& path, const NameForms& names,
                 const std::function<int(const RuleFile&)>& work) {
    std::string text;
    if (const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), text); !read) {
        return out.Fail(ZOP_STATUS_FROM_WIN32(read.error), Subject::kAny, "read " + Quote(path));
    }
    std::vector<Mistake> mistakes;
    const RuleFile file = ReadRuleFile(text, names, mistakes);
    if (mistakes.empty()) return work(file);
    Json list = Json::array();
    TextTable table({"WHERE", "MISTAKE"});
    for (const Mistake& mistake : mistakes) {
        list.push_back({{"pointer", mistake.pointer}, {"message", mistake.message}});
        table.Add({mistake.pointer.empty() ? "(whole file)" : mistake.pointer, mistake.message});
    }
    out.Table(table);
    return out.Refuse(kExitUsage,
                      zo::Format("{} has {} mistake{}.", Quote(path), mistakes.size(), mistakes.size() == 1 ? "" : "s"),
                      "Mend what is listed; docs/rules.md describes the file. Nothing was sent to the driver.",
                      {{"file", path}, {"mistakes", list}});
}

int Diff(Output& out, const RuleFile& file, const NameForms& names) {
    DriverState state;
    std::string what;
    if (const std::int32_t status = ReadDriverState(state, what); status < 0) {
        return out.Fail(status, Subject::kRule, what);
    }
    const Difference difference = Compare(file, state, names);
    out.Text(DifferenceText(difference, file, state));
    if (file.HasUnreadable()) out.Hint(kUnreadableNote);
    const Json facts = DifferenceJson(difference, file, state);
    if (difference.None()) return out.Done("The driver holds what the file wants.", facts);
    return out.Found(kExitNotInForce, "The driver does not hold what the file wants.", facts);
}

struct ApplyOptions {
    std::string file;
    bool allowMassRemoval = false;
    bool resend = false;
    bool dryRun = false;
};

const char* UnreadableWord(UnreadableParts parts) {
    switch (parts) {
        case UnreadableParts::kNone:
            return "none";
        case UnreadableParts::kSent:
            return "sent";
        case UnreadableParts::kHeldBack:
            return "held back";
    }
    return "";
}

void TellSteps(Output& out, const Plan& plan, const std::vector<StepResult>& results) {
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        const std::string step = DescribeStep(plan.steps[i]);
        switch (results[i].outcome) {
            case Outcome::kDone:
                out.Text(zo::Format("done       {}\n", step));
                break;
            case Outcome::kNotTried:
                out.Text(zo::Format("not tried  {}\n", step));
                break;
            case Outcome::kFailed: {
                const StatusText status = FullStatusText(results[i].status, Subject::kRule);
                out.Text(zo::Format("FAILED     {}: {} {}\n", step, status.name, status.value));
                out.Hint(zo::Format("zoctl {}: could not {}: {}\n  Next: {}", out.Command(), step, status.meaning,
                                    status.advice));
                break;
            }
        }
    }
    if (plan.unreadable == UnreadableParts::kHeldBack) {
        out.Hint(std::string(kUnreadableNote) +
                 " Those of the file were not sent, for all that can be read is as the file wants it; --resend sends "
                 "them.");
    }
}

// After the steps: what does the driver hold now?
int ReadBack(Output& out, const RuleFile& file, const NameForms& names, const std::vector<StepResult>& results,
             Json facts) {
    DriverState state;
    std::string what;
    if (const std::int32_t status = ReadDriverState(state, what); status < 0) {
        return out.Fail(status, Subject::kRule, what + " back", facts);
    }
    const Difference difference = Compare(file, state, names);
    facts["difference"] = DifferenceJson(difference, file, state);
    const auto count = [&results](Outcome outcome) {
        return std::count_if(results.begin(), results.end(),
                             [outcome](const StepResult& r) { return r.outcome == outcome; });
    };
    const auto done = count(Outcome::kDone);
    const bool all = done == static_cast<std::ptrdiff_t>(results.size());
    const std::size_t inForce = InForceCount(difference);
    facts["inForce"] = inForce;
    if (difference.None() && all) {
        return out.Done(
            zo::Format("{} commands sent. All {} rules of the file are in force, read back from the driver.",
                       results.size(), inForce),
            facts);
    }
    out.Text(DifferenceText(difference, file, state));
    return out.Refuse(
        kExitNotInForce,
        zo::Format("Not all is as the file wants it: {} of {} steps were done, {} failed, {} were not tried.", done,
                   results.size(), count(Outcome::kFailed), count(Outcome::kNotTried)),
        "Mend what the failures name and apply the file again; only what is missing is sent then.", facts);
}

int Apply(Output& out, const RuleFile& file, const NameForms& names, const ApplyOptions& options) {
    DriverState state;
    std::string what;
    if (const std::int32_t status = ReadDriverState(state, what); status < 0) {
        return out.Fail(status, Subject::kRule, what);
    }
    const Difference before = Compare(file, state, names);
    const Removal removal = MeasureRemoval(file, state, before);
    const Plan plan = MakePlan(file, state, names, options.resend);
    Json facts = {{"file", options.file}, {"unreadable", UnreadableWord(plan.unreadable)}};
    std::vector<StepResult> results(plan.steps.size());
    if (removal.IsMass() && !options.allowMassRemoval) {
        facts["steps"] = StepsJson(plan.steps, results);
        return out.Refuse(
            kExitFailed,
            removal.switchesOff
                ? std::string("The file switches all protection off.")
                : zo::Format("The file would remove {} of the {} rules that protect now.", removal.removed, removal.of),
            "Nothing was sent. Look at \"zoctl rules diff\"; if it is wanted, give --allow-mass-removal.", facts);
    }
    if (options.dryRun) {
        TellSteps(out, plan, results);
        facts["steps"] = StepsJson(plan.steps, results);
        return out.Done(zo::Format("{} commands would be sent.", plan.steps.size()), facts);
    }
    bool cancelled = false;
    {
        const Cancellation cancellation;
        results = CarryOut(plan.steps, [&] { return cancelled = cancellation.Requested(); });
    }
    TellSteps(out, plan, results);
    facts["steps"] = StepsJson(plan.steps, results);
    if (cancelled) return out.Refuse(kExitCancelled, "Cancelled half-way.", "Apply the file again.", facts);
    return ReadBack(out, file, names, results, std::move(facts));
}

}  // namespace

void RegisterRules(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "rules", "The driver's tables, and the whole rule set in one file");
    AddList(tool, group);
    AddExport(tool, group);

    const auto checked = std::make_shared<std::string>();
    tool.AddCommand(
            group, {"check", "Find every mistake in a rule file; needs no driver", "rules check C:\\Suite\\rules.json"},
            [checked](Output& out) {
                return WithRuleFile(out, *checked, SystemNames(), [&](const RuleFile&) {
                    return out.Done(Quote(*checked) + " has no mistakes.",
                                    {{"file", *checked}, {"mistakes", Json::array()}});
                });
            })
        .add_option("file", *checked)
        ->required();

    const auto compared = std::make_shared<std::string>();
    tool.AddCommand(group,
                    {"diff", "Tell what the driver has too much and too little; changes nothing",
                     "rules diff C:\\Suite\\rules.json"},
                    [compared](Output& out) {
                        const SystemNames names;
                        return WithRuleFile(out, *compared, names, [&](const RuleFile& file) {
                            return WithDriver(out, [&] { return Diff(out, file, names); });
                        });
                    })
        .add_option("file", *compared)
        ->required();

    const auto options = std::make_shared<ApplyOptions>();
    CLI::App& apply =
        tool.AddCommand(group,
                        {"apply", "Bring the driver to what the file wants, with the fewest commands, and read it back",
                         "rules apply C:\\Suite\\rules.json --dry-run\nrules apply C:\\Suite\\rules.json"},
                        [options](Output& out) {
                            const SystemNames names;
                            return WithRuleFile(out, options->file, names, [&](const RuleFile& file) {
                                return WithDriver(out, [&] { return Apply(out, file, names, *options); });
                            });
                        });
    apply.add_option("file", options->file)->required();
    apply.add_flag("--dry-run", options->dryRun, "Show the commands and send none");
    apply.add_flag("--allow-mass-removal", options->allowMassRemoval,
                   "Go on although most rules would be removed, or all protection switched off");
    apply.add_flag("--resend", options->resend,
                   "Send again what cannot be read back (ignore lists, overrides, switches)");
}

}  // namespace zoctl
