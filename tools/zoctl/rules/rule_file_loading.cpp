#include "rule_file_loading.h"

#include "files.h"
#include "format.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

Ended LoadRuleFile(Output& out, const std::string& path, const NameForms& names, RuleFile& file) {
    std::string text;
    if (const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), text); !read) {
        return out.Fail(ZOP_STATUS_FROM_WIN32(read.error), Subject::kAny, "read " + Quote(path));
    }
    std::vector<Mistake> mistakes;
    file = ReadRuleFile(text, names, mistakes);
    if (mistakes.empty()) return std::nullopt;
    Json list = Json::array();
    TextTable table({"WHERE", "MISTAKE"});
    for (const Mistake& mistake : mistakes) {
        list.push_back({{"pointer", mistake.pointer}, {"message", mistake.message}});
        table.Add({mistake.pointer.empty() ? "(whole file)" : mistake.pointer, mistake.message});
    }
    out.Table(table);
    return out.Refuse(kExitUsage,
                      zo::Format("{} has {} mistake{}.", Quote(path), mistakes.size(), mistakes.size() == 1 ? "" : "s"),
                      "Fix what is listed; docs/rules.md describes the file. Nothing was sent to the driver.",
                      {{"file", path}, {"mistakes", list}});
}

}  // namespace zoctl
