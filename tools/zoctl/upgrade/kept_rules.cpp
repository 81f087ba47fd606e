#include "kept_rules.h"

#include <windows.h>

#include "channel.h"
#include "driver_tables.h"
#include "files.h"
#include "format.h"
#include "owned_handles.h"
#include "rule_apply.h"
#include "rule_file_loading.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

namespace {

Json IgnoreJson(const WantedRules& rules) {
    Json list = Json::array();
    for (const WantedRule& rule : rules)
        list.push_back(RuleJson(Table::kProcess, rule.given));  // an ignore entry has the shape of a process rule
    return list;
}

// Copies the parts that the driver cannot be asked for, and returns those that the file has no word about.
std::vector<std::string> AddUnreadable(const RuleFile& given, Json& file) {
    std::vector<std::string> absent;
    const auto copy = [&](const char* section, const char* member, const auto& part, const auto& toJson) {
        if (part) {
            file[section][member] = toJson(*part);
        } else {
            absent.push_back(zo::Format("{}.{}", section, member));
        }
    };
    const auto asItIs = [](const auto& value) { return Json(value); };
    copy("file", "enabled", given.fileEnabled, asItIs);
    copy("file", "ignore", given.fileIgnore, IgnoreJson);
    copy("registry", "ignore", given.registryIgnore, IgnoreJson);
    copy("dll", "enabled", given.dllEnabled, asItIs);
    copy("signature", "overrides", given.overrides, asItIs);
    return absent;
}

// A new file in the temporary folder. 0 or the Win32 error; path stays empty where there is no such folder.
DWORD WriteNewFile(std::string_view text, std::string& path) {
    wchar_t folder[MAX_PATH + 1] = {};
    if (GetTempPathW(static_cast<DWORD>(std::size(folder)), folder) == 0) return GetLastError();
    path = zo::Format("{}zoctl_rules_{}_{}.json", zo::Utf8FromWide(folder), GetCurrentProcessId(), GetTickCount64());
    const zo::OwnedFile file(CreateFileW(zo::WideFromUtf8(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? zo::WriteWhole(file.Get(), text) : GetLastError();
}

}  // namespace

Ended KeptRules::Capture(Output& out, const std::string& rulesFile) {
    RuleFile given;
    if (!rulesFile.empty()) {
        if (const Ended ended = LoadRuleFile(out, rulesFile, names_, given)) return ended;
    }
    const Channel channel;
    if (const Ended ended = channel.Check(out)) return ended;
    DriverState state;
    if (const Ended ended = LoadDriverState(out, state)) return ended;
    std::vector<std::string> leftOut;
    Json file = WriteRuleFile(state, names_, leftOut);
    notKept_ = AddUnreadable(given, file);
    const std::string text = file.dump(4, ' ', false, Json::error_handler_t::replace) + "\n";
    std::vector<Mistake> mistakes;
    rules_ = ReadRuleFile(text, names_, mistakes);
    for (const Mistake& mistake : mistakes)
        leftOut.push_back(zo::Format("{}: {}", mistake.pointer, mistake.message));
    if (!leftOut.empty()) {
        for (const std::string& sentence : leftOut)
            out.Hint("Cannot be kept: " + sentence + ".");
        return out.Refuse(kExitFailed,
                          zo::Format("The driver holds {} that a rule file cannot express.",
                                     leftOut.size() == 1 ? "a rule" : zo::Format("{} rules", leftOut.size())),
                          "Nothing was changed. Remove them, or upgrade without --keep-rules and add all rules again.",
                          {{"leftOut", leftOut}});
    }
    text_ = text;
    return std::nullopt;
}

Ended KeptRules::Save(Output& out) {
    const DWORD error = WriteNewFile(text_, file_);
    if (!error) return std::nullopt;
    const std::string path = std::exchange(file_, {});
    return out.Fail(ZOP_STATUS_FROM_WIN32(error), Subject::kAny,
                    "save the driver's rules in " + (path.empty() ? "the temporary folder" : Quote(path)));
}

int KeptRules::PutBack(Output& out) const {
    const Channel channel;
    if (const Ended ended = channel.Check(out)) return *ended;
    ApplyOptions options;
    options.allowMassRemoval = true;  // the new driver is to hold what the old one held, whatever it starts with
    options.resend = true;
    return ApplyRules(out, rules_, names_, options);
}

void KeptRules::RemoveFile() {
    DeleteFileW(zo::WideFromUtf8(file_).c_str());  // left behind it does no harm
    file_.clear();
}

}  // namespace zoctl
