// "zoctl rules": the tables listed, and the whole wanted rule set in one file.

#include <windows.h>

#include "channel.h"
#include "driver_tables.h"
#include "files.h"
#include "format.h"
#include "owned_handles.h"
#include "rule_apply.h"
#include "rule_file_loading.h"
#include "rule_lint.h"
#include "rule_report.h"
#include "rules_commands.h"
#include "system_names.h"
#include "system_places.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

namespace {

// ---- list

int ListTables(Output& out, const std::vector<Table>& tables, bool nt) {
    const SystemNames names;
    Json facts = Json::object();
    for (const Table table : tables) {
        TableContents contents;
        const std::int32_t status = ReadTable(table, contents);
        if (status < 0) {
            return out.Fail(status, Subject::kAny, zo::Format("read the {} table", TableName(table)),
                            {{"tables", facts}});
        }
        out.Text(zo::Format("{} rules: {}\n", TableName(table), contents.total));
        if (!contents.rules.empty()) out.Table(RuleTable(table, contents.rules, names, nt));
        for (const std::string& entry : contents.unknown)
            out.Text(zo::Format("entry of unknown form: {}\n", entry));
        facts[TableName(table)] = TableJson(table, contents.rules, names);
        facts[TableName(table)]["unknownEntries"] = contents.unknown;
    }
    return out.Done("", {{"tables", facts}});
}

void AddList(Tool& tool, CLI::App& group) {
    const auto only = std::make_shared<std::string>();
    const auto nt = std::make_shared<bool>(false);
    CLI::App& command = tool.AddCommand(group,
                                        {"list", "Show the rules that the driver holds, as drive paths",
                                         "rules list\nrules list --table file --nt\nrules list --json"},
                                        WithDriver([only, nt](Output& out) {
                                            std::vector<Table> tables;
                                            for (const Table table : kAllTables) {
                                                if (only->empty() || *only == TableName(table)) tables.push_back(table);
                                            }
                                            return ListTables(out, tables, *nt);
                                        }));
    command.add_option("--table", *only, "Only this table")
        ->check(CLI::IsMember({"process", "file", "registry", "dll"}));
    command.add_flag("--nt", *nt, "Show the driver's own NT names instead of drive paths");
}

// ---- export

// A new file of no other's name beside the target.
zo::OwnedFile CreateBeside(const std::wstring& target, std::wstring& path) {
    for (int i = 1;; ++i) {
        path = target + L"." + std::to_wstring(i) + L".new";
        zo::OwnedFile file(
            CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file || GetLastError() != ERROR_FILE_EXISTS) return file;
    }
}

// Beside the target first, then in its place, so that a failure leaves no half file. 0 or the Win32 error.
DWORD ReplaceByText(const std::string& path, std::string_view bytes, bool replace) {
    const std::wstring target = zo::WideFromUtf8(path);
    std::wstring staging;
    zo::OwnedFile file = CreateBeside(target, staging);
    if (!file) return GetLastError();
    DWORD error = zo::WriteWhole(file.Get(), bytes);
    file.Reset();
    if (!error && !MoveFileExW(staging.c_str(), target.c_str(), replace ? MOVEFILE_REPLACE_EXISTING : 0)) {
        error = GetLastError();
    }
    if (error) DeleteFileW(staging.c_str());  // left behind it would only confuse
    return error;
}

void ShowLeftOut(Output& out, const std::vector<std::string>& leftOut) {
    for (const std::string& sentence : leftOut)
        out.Hint("Left out: " + sentence + ".");
    out.Hint(std::string(kUnreadableNote) + " The file leaves them out.");
}

int Export(Output& out, const std::string& path, bool force) {
    DriverState state;
    if (const Ended ended = LoadDriverState(out, state)) return *ended;
    std::vector<std::string> leftOut;
    const std::string text =
        WriteRuleFile(state, SystemNames(), leftOut).dump(4, ' ', false, Json::error_handler_t::replace) + "\n";
    if (path.empty()) {
        out.Put(text);
        ShowLeftOut(out, leftOut);
        return out.End(leftOut.empty() ? kExitDone : kExitFailed);
    }
    const DWORD error = ReplaceByText(path, text, force);
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) {
        return out.Refuse(kExitExists, "The file " + Quote(path) + " already exists.", "Give --force to replace it.");
    }
    if (error) return out.Fail(ZOP_STATUS_FROM_WIN32(error), Subject::kAny, "write " + Quote(path));
    const Json facts = {{"file", path}, {"leftOut", leftOut}};
    const int exitCode =
        leftOut.empty()
            ? out.Done("The rules are written to " + Quote(path) + ".", facts)
            : out.Refuse(kExitFailed, "The file was written, but it does not hold every rule.",
                         "The rules left out are listed on standard error; a rule file cannot express them.", facts);
    ShowLeftOut(out, leftOut);
    return exitCode;
}

void AddExport(Tool& tool, CLI::App& group) {
    const auto path = std::make_shared<std::string>();
    const auto force = std::make_shared<bool>(false);
    CLI::App& command =
        tool.AddCommand(group,
                        {"export", "Write what the driver holds as a rule file; to standard output without FILE",
                         "rules export C:\\Suite\\rules.json"},
                        WithDriver([path, force](Output& out) { return Export(out, *path, *force); }));
    command.add_option("file", *path);
    command.add_flag("--force", *force, "Replace an existing file");
}

// ---- check, diff, apply

Json FindingJson(const LintFinding& finding) {
    return {{"kind", finding.kind}, {"pointer", finding.pointer}, {"message", finding.message}};
}

// With the facts of a file without mistakes.
int ReportFindings(Output& out, const std::string& path, const std::vector<LintFinding>& findings, Json facts) {
    TextTable table({"WHERE", "KIND", "FINDING"});
    Json list = Json::array();
    for (const LintFinding& finding : findings) {
        table.Add({finding.pointer, finding.kind, finding.message});
        list.push_back(FindingJson(finding));
    }
    facts["findings"] = std::move(list);
    if (findings.empty())
        return out.Done(Quote(path) + " has no mistakes, and nothing to note on this machine.", facts);
    out.Table(table);
    return out.Found(
        kExitLint,
        zo::Format("{} has no mistakes, but {} on this machine.", Quote(path), Counted(findings.size(), "finding")),
        facts, "docs/rules.md explains each kind of finding.");
}

int Check(Output& out, const std::string& path, bool lint) {
    const SystemNames names;
    RuleFile file;
    if (const Ended ended = LoadRuleFile(out, path, names, file)) return *ended;
    const SystemPlaces places(names);
    Json facts = {{"file", path}, {"mistakes", Json::array()}};
    if (lint) return ReportFindings(out, path, Lint(file, names, places), std::move(facts));
    Json notes = Json::array();
    for (const LintFinding& finding : FindUnseenNames(file, places)) {
        out.Hint(zo::Format("Note: {}: {}", finding.pointer, finding.message));
        notes.push_back(FindingJson(finding));
    }
    facts["notes"] = std::move(notes);
    return out.Done(Quote(path) + " has no mistakes.", facts);
}

// The two that compare a file with the driver: the file first, since its mistakes can be shown without a driver.
int CompareWithDriver(Output& out, const std::string& path,
                      const std::function<int(const RuleFile&, const NameForms&)>& work) {
    const SystemNames names;
    RuleFile file;
    if (const Ended ended = LoadRuleFile(out, path, names, file)) return *ended;
    const Channel channel;
    if (const Ended ended = channel.Check(out)) return *ended;
    return work(file, names);
}

int Diff(Output& out, const RuleFile& file, const NameForms& names) {
    DriverState state;
    if (const Ended ended = LoadDriverState(out, state)) return *ended;
    const Difference difference = Compare(file, state, names);
    out.Text(DifferenceText(difference, file, state));
    if (file.HasUnreadable()) out.Hint(kUnreadableNote);
    const Json facts = DifferenceJson(difference, file, state);
    if (difference.None()) return out.Done("The driver matches the file.", facts);
    return out.Found(kExitNotInForce, "The driver does not match the file.", facts,
                     "\"zoctl rules apply\" makes it match.");
}

void AddCheck(Tool& tool, CLI::App& group) {
    const auto checked = std::make_shared<std::string>();
    const auto lint = std::make_shared<bool>(false);
    CLI::App& check = tool.AddCommand(group,
                                      {"check", "Find every mistake in a rule file; needs no driver",
                                       "rules check C:\\Suite\\rules.json\nrules check C:\\Suite\\rules.json --lint"},
                                      [checked, lint](Output& out) { return Check(out, *checked, *lint); });
    check.add_option("file", *checked)->required();
    check.add_flag("--lint", *lint, "Also find what is useless on this machine; exit code 41 when there is something");
}

void AddDiff(Tool& tool, CLI::App& group) {
    const auto compared = std::make_shared<std::string>();
    tool.AddCommand(
            group,
            {"diff", "Show how the driver differs from the file; changes nothing", "rules diff C:\\Suite\\rules.json"},
            [compared](Output& out) {
                return CompareWithDriver(out, *compared, [&](const RuleFile& file, const NameForms& names) {
                    return Diff(out, file, names);
                });
            })
        .add_option("file", *compared)
        ->required();
}

void AddApply(Tool& tool, CLI::App& group) {
    const auto options = std::make_shared<ApplyOptions>();
    CLI::App& apply = tool.AddCommand(
        group,
        {"apply", "Make the driver match the file with the fewest commands, then read the result back",
         "rules apply C:\\Suite\\rules.json --dry-run\nrules apply C:\\Suite\\rules.json"},
        [options](Output& out) {
            return CompareWithDriver(out, options->file, [&](const RuleFile& file, const NameForms& names) {
                return ApplyRules(out, file, names, *options);
            });
        });
    apply.add_option("file", options->file)->required();
    apply.add_flag("--dry-run", options->dryRun, "Show the commands and send none");
    apply.add_flag("--allow-mass-removal", options->allowMassRemoval,
                   "Apply even if most rules would be removed or all protection switched off");
    apply.add_flag("--resend", options->resend,
                   "Send again what cannot be read back (ignore lists, overrides, switches)");
}

}  // namespace

void RegisterRules(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "rules", "The driver's tables, and the whole rule set in one file");
    AddList(tool, group);
    AddExport(tool, group);
    AddCheck(tool, group);
    AddDiff(tool, group);
    AddApply(tool, group);
}

}  // namespace zoctl
