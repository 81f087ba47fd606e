#include "input_file.h"

#include "files.h"
#include "format.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

Ended ReadInputFile(Output& out, const std::string& path, std::string& bytes) {
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), bytes);
    if (read) return std::nullopt;
    return out.Fail(ZOP_STATUS_FROM_WIN32(read.error), Subject::kAny, "read " + Quote(path));
}

Ended ReportMistakes(Output& out, const std::string& path, const std::vector<Mistake>& mistakes,
                     std::string_view advice) {
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
                      advice, {{"file", path}, {"mistakes", list}});
}

}  // namespace zoctl
