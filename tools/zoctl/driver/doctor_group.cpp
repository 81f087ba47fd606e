#include <algorithm>
#include <iterator>
#include <memory>

#include "crash_facts.h"
#include "doctor_facts.h"
#include "driver_commands.h"
#include "driver_names.h"
#include "format.h"
#include "rule_tables.h"
#include "support_bundle.h"

namespace zoctl {

namespace {

// What programs want without the sentences; null where it could not be read.
Json MeasuredJson(const DoctorFacts& facts) {
    const bool asked = facts.handshake && *facts.handshake >= 0;
    Json rules = Json::object();
    for (const Table table : kAllTables)
        rules[TableName(table)] = facts.rules[Index(table)];
    const std::string fileVersion = facts.fileThere ? FileVersionText(facts.fileVersion) : std::string();
    const auto ifRead = [asked](std::int32_t status, Json value) {
        return asked && status >= 0 ? std::move(value) : Json(nullptr);
    };
    return {{"fileVersion", TextOrNull(fileVersion)},
            {"driverVersion", asked ? Json(VersionText(facts.driverVersion)) : Json(nullptr)},
            {"rules", ifRead(facts.rulesStatus, rules)},
            {"lost", ifRead(facts.ringStatus, {{"main", facts.lostMain}, {"registry", facts.lostRegistry}})},
            {"unsignedBypassAttempts", ifRead(facts.statsStatus, facts.bypassAttempts)}};
}

int Doctor(Output& out, bool online) {
    const DoctorFacts facts = GatherDoctorFacts();
    std::vector<Finding> findings = Judge(facts);
    std::ranges::move(JudgeCrashReports(GatherCrashFacts(online)), std::back_inserter(findings));
    TextTable table({"", "SUBJECT", "FINDING"});
    std::string remedies;
    Json list = Json::array();
    for (const Finding& finding : findings) {
        const char* severity = SeverityName(finding.severity);
        table.Add({finding.severity == Severity::kWrong ? "WRONG" : severity, finding.subject, finding.text});
        if (!finding.remedy.empty()) remedies += zo::Format("  {}: {}\n", finding.subject, finding.remedy);
        list.push_back({{"subject", finding.subject},
                        {"severity", severity},
                        {"finding", finding.text},
                        {"remedy", TextOrNull(finding.remedy)}});
    }
    out.Table(table);
    if (!remedies.empty()) out.Text("\nHow to fix it:\n" + remedies);
    const auto wrong = std::count_if(findings.begin(), findings.end(),
                                     [](const Finding& finding) { return finding.severity == Severity::kWrong; });
    out.Text("\n");
    return out.Found(wrong ? kExitDoctor : kExitDone,
                     wrong ? zo::Format("{} thing{} wrong.", wrong, wrong == 1 ? " is" : "s are") : "Nothing is wrong.",
                     {{"findings", list}, {"measured", MeasuredJson(facts)}});
}

struct DoctorOptions {
    bool online = false;
    BundleOptions bundle;
};

std::vector<BundleAnswer> CollectAnswers(const Tool& tool, bool online) {
    std::vector<BundleAnswer> answers(1, {"doctor", {}});
    Output out("doctor", OutputMode::kJson, answers[0].document);
    static_cast<void>(Doctor(out, online));  // the document has the exit code
    for (const char* command :
         {"driver status", "status", "stats", "signature policy", "rules list", "crash history"}) {
        std::string name = command;
        std::replace(name.begin(), name.end(), ' ', '_');
        answers.push_back({name, tool.DocumentOf(command)});
    }
    return answers;
}

}  // namespace

void RegisterDoctor(CLI::App& root, Tool& tool) {
    const auto options = std::make_shared<DoctorOptions>();
    CLI::App& doctor = tool.AddCommand(
        root,
        {"doctor",
         "Check service, file, filter, device, driver, log and crash reporter, and say how to fix what is wrong",
         "doctor\ndoctor --online --json\ndoctor --bundle C:\\Temp\\support.zip"},
        [options, &tool](Output& out) {
            if (options->bundle.file.empty()) return Doctor(out, options->online);
            return WriteSupportBundle(out, options->bundle, [&] { return CollectAnswers(tool, options->online); });
        });
    doctor.add_flag("--online", options->online, "Also ask whether the crash server answers, for at most 10 seconds");
    CLI::Option* const bundle = doctor.add_option(
        "--bundle", options->bundle.file,
        "Write a ZIP file for support instead: this check, status, counters, rules, crash history and log");
    doctor.add_flag("--yes", options->bundle.yes, "Do not ask before the bundle is written")->needs(bundle);
}

}  // namespace zoctl
