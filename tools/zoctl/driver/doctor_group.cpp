#include <algorithm>
#include <iterator>
#include <memory>

#include "crash_facts.h"
#include "doctor_facts.h"
#include "driver_commands.h"
#include "driver_names.h"
#include "format.h"
#include "rule_tables.h"

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
            {"driverVersion", ifRead(0, VersionText(facts.driverVersion))},
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

}  // namespace

void RegisterDoctor(CLI::App& root, Tool& tool) {
    const auto online = std::make_shared<bool>(false);
    tool.AddCommand(root,
                    {"doctor",
                     "Check service, file, filter, device, driver, log and crash reporter, and say how to fix what is "
                     "wrong",
                     "doctor\ndoctor --online --json"},
                    [online](Output& out) { return Doctor(out, *online); })
        .add_flag("--online", *online, "Also ask whether the crash server answers, for at most 10 seconds");
}

}  // namespace zoctl
