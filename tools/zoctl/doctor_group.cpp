#include <algorithm>

#include "doctor_facts.h"
#include "format.h"
#include "groups.h"

namespace zoctl {

namespace {

int Doctor(Output& out) {
    const std::vector<Finding> findings = Judge(GatherDoctorFacts());
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
                        {"remedy", finding.remedy.empty() ? Json(nullptr) : Json(finding.remedy)}});
    }
    out.Table(table);
    if (!remedies.empty()) out.Text("\nWhat to do:\n" + remedies);
    const auto wrong = std::count_if(findings.begin(), findings.end(),
                                     [](const Finding& finding) { return finding.severity == Severity::kWrong; });
    out.Text("\n");
    return out.Found(wrong ? kExitDoctor : kExitDone,
                     wrong ? zo::Format("{} thing{} wrong.", wrong, wrong == 1 ? " is" : "s are") : "Nothing is wrong.",
                     {{"findings", list}});
}

}  // namespace

void RegisterDoctor(CLI::App& root, Tool& tool) {
    tool.AddCommand(root,
                    {"doctor", "Examine service, file, filter, device, driver and log, and say what to do",
                     "doctor\ndoctor --json"},
                    Doctor);
}

}  // namespace zoctl
