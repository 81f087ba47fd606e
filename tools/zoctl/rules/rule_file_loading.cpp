#include "rule_file_loading.h"

#include "input_file.h"

namespace zoctl {

Ended LoadRuleFile(Output& out, const std::string& path, const NameForms& names, RuleFile& file) {
    std::string text;
    if (const Ended ended = ReadInputFile(out, path, text)) return ended;
    std::vector<Mistake> mistakes;
    file = ReadRuleFile(text, names, mistakes);
    return ReportMistakes(out, path, mistakes,
                          "Fix what is listed; docs/rules.md describes the file. Nothing was sent to the driver.");
}

}  // namespace zoctl
