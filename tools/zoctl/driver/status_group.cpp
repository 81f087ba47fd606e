#include "channel.h"
#include "driver_commands.h"
#include "driver_names.h"
#include "facts.h"
#include "format.h"
#include "vocabulary_option.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

// The four pairs are the driver's own; the library only widens them.
Json PairsJson(const ZopStatus& status) {
    return {{{"flag", status.flag1}, {"count", status.count1}},
            {{"flag", status.flag2}, {"count", status.count2}},
            {{"flag", status.flag3}, {"count", status.count3}},
            {{"flag", status.flag4}, {"count", status.count4}}};
}

// A row for each number of a pair that has names, else one for the pair.
void AddPair(Facts& facts, std::size_t number, Json& pair, const Vocabulary& vocabulary) {
    if (vocabulary.status.empty()) {
        facts.Add(zo::Format("pair {}", number + 1).c_str(), nullptr, nullptr,
                  zo::Format("flag {}  count {}", pair["flag"].get<unsigned>(), pair["count"].get<unsigned>()));
        return;
    }
    const PairNames& names = vocabulary.status[number];
    facts.Add(names.flag.c_str(), nullptr, pair["flag"]);
    facts.Add(names.count.c_str(), nullptr, pair["count"]);
    pair["flagName"] = names.flag;
    pair["countName"] = names.count;
}

int ShowRunningDriver(Output& out, const Vocabulary& vocabulary) {
    std::uint32_t version[3] = {};
    std::uint32_t enabled = 0;
    ZopStatus pairs{};
    std::int32_t status = ZoProtector_GetVersion(&version[0], &version[1], &version[2]);
    if (status < 0) return out.Fail(status, Subject::kAny, "read the driver's version");
    status = ZoProtector_GetMasterEnabled(&enabled);
    if (status < 0) return out.Fail(status, Subject::kAny, "read the master switch");
    status = ZoProtector_GetStatus(&pairs);
    if (status < 0) return out.Fail(status, Subject::kAny, "read the driver's status");

    Facts facts;
    facts.Add("version", "driverVersion", VersionText(version));
    facts.Add("protection", "enabled", enabled != 0, enabled ? "on" : "off");
    Json pairsJson = PairsJson(pairs);
    for (std::size_t i = 0; i < pairsJson.size(); ++i)
        AddPair(facts, i, pairsJson[i], vocabulary);
    facts.Add(nullptr, "pairs", pairsJson);
    out.Table(facts.Sheet({"DRIVER", ""}));
    if (!enabled) out.Hint("Protection is switched off; \"zoctl enable\" switches it on.");
    return out.Done("", facts.Members());
}

void AddMasterSwitch(Tool& tool, CLI::App& root, const CommandText& text, bool on) {
    tool.AddCommand(root, text, WithDriver([on](Output& out) {
                        return out.Report(ZoProtector_SetMasterEnabled(on), Subject::kAny, "switch protection",
                                          on ? "Protection is on." : "Protection is off.", {{"enabled", on}});
                    }));
}

}  // namespace

void RegisterStatus(CLI::App& root, Tool& tool) {
    VocabularyOption names;
    names.AddTo(tool.AddCommand(root,
                                {"status", "Show the running driver's version, master switch and counts",
                                 "status\nstatus --vocabulary C:\\Suite\\driver.json"},
                                names.WithNames(ShowRunningDriver)));
    AddMasterSwitch(tool, root, {"enable", "Switch all protection on", "enable"}, true);
    AddMasterSwitch(tool, root, {"disable", "Switch all protection off; the rules stay", "disable"}, false);
}

}  // namespace zoctl
