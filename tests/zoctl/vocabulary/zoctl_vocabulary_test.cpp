#include "zoctl_process.h"

namespace {

using namespace zotest;

// The commands that show what is the driver's own, with the simulator's names for it.
class ZoctlVocabulary : public ZoctlTest {
  protected:
    static std::string Simulators() { return zo::Utf8FromWide((ProgramFolder() / "vocabulary.json").wstring()); }
    static ZoctlRun Named(std::vector<std::string> words, const std::string& vocabulary = Simulators()) {
        words.insert(words.end(), {"--vocabulary", vocabulary});
        return RunZoctl(words);
    }
};

TEST_F(ZoctlVocabulary, CheckNeedsNoDriverAndNamesEveryMistake) {
    const TempFolder folder;
    EXPECT_TRUE(Gave(RunZoctl({"vocabulary", "check", Simulators()}), 0, "8 fields of main events"));
    WriteFileBytes(folder / "wrong.json", R"({"version": 1, "counters": {"a": 5}, "status": []})");
    const std::string wrong = zo::Utf8FromWide((folder / "wrong.json").wstring());
    EXPECT_TRUE(Gave(RunZoctl({"vocabulary", "check", wrong}), 2, "has 2 mistakes"));
    EXPECT_TRUE(Gave(Named({"stats"}, wrong), 2, "/counters/a"));
    EXPECT_TRUE(Gave(Named({"stats"}, "C:\\none.json"), 3));
    EXPECT_EQ(Simulator().RequestCount(), 0u);
}

TEST_F(ZoctlVocabulary, EventsHaveColumnsAndNamedFields) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 2);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 1);
    EXPECT_TRUE(Gave(Named({"events", "--both"}), 0, R"(main events
sequence    kind     pid         operation   path
0           process  1000        0           \Device\HarddiskVolume1\Simulated\event_00000000.exe
1           file     1001        1           \Device\HarddiskVolume1\Simulated\event_00000001.exe
registry events
)"));
    Json fields = Named({"events", "--json"}).json["records"][1]["fields"];
    EXPECT_TRUE(fields["time"].get<std::string>().starts_with("20")) << fields;
    fields.erase("time");
    EXPECT_EQ(fields, Json::parse(R"({"sequence": 1, "kind": "file", "pid": 1001, "thread": 1002, "blocked": "no",
        "operation": 1, "path": "\\Device\\HarddiskVolume1\\Simulated\\event_00000001.exe"})"));
}

TEST_F(ZoctlVocabulary, WhereShowsTheEventsOfWhichAllConditionsHold) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 20);
    const ZoctlRun run =
        Named({"events", "--both", "--json", "--where", "kind=file", "--where", "path=*_0000000?.EXE"});
    EXPECT_EQ(run.json["records"].size(), 8u) << run.out;
    EXPECT_EQ(run.json["totals"][0]["received"], 20);
    for (const char* condition : {"none=1", "kind=folder"})
        EXPECT_TRUE(Gave(Named({"events", "--where", condition}), 2)) << condition;
    EXPECT_TRUE(Gave(Named({"events", "--where", "kind"}), 2, "--where needs --vocabulary, and has the form FIELD=V"));
    EXPECT_TRUE(Gave(Named({"events", "--where", "kind=file", "pid=1"}), 2));
    EXPECT_TRUE(Gave(RunZoctl({"events", "--where", "kind=file"}), 2, "--vocabulary"));
}

TEST_F(ZoctlVocabulary, StatusStatsAndPolicyHaveNames) {
    EXPECT_TRUE(Gave(Zoctl("process add C:\\a"), 0));
    const Json pair = Named({"status", "--json"}).json["pairs"][0];
    EXPECT_EQ(pair, Json::parse(R"({"flag": 1, "count": 1, "flagName": "masterSwitch", "countName": "processRules"})"));
    EXPECT_TRUE(Gave(Named({"status"}), 0, "\nprocessRules    1\n"));
    EXPECT_EQ(Named({"stats", "--json"}).json["counters"][2],
              Json::parse(R"({"offset": 12, "value": 1, "name": "rulesAdded"})"));
    EXPECT_TRUE(Gave(Named({"stats"}), 0, "\nrulesAdded "));
    EXPECT_TRUE(Gave(Named({"signature", "policy", "--mode", "2", "--min-level", "0", "--json"}), 0, "",
                     {{"mode", 2}, {"modeName", "enforce"}, {"minLevel", 0}, {"minLevelName", "unsigned"}}));
    EXPECT_TRUE(Gave(Named({"signature", "policy"}), 0, "mode 2 (enforce), minimum level 0 (unsigned)."));
}

}  // namespace
