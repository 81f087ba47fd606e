// simctl as a script has it: exit codes, text, JSON, and what each command does to the simulator.

#include <nlohmann/json.hpp>
#include <sstream>

#include "child_process.h"
#include "driver_channel.h"
#include "loaded_library.h"
#include "rows.h"

namespace zotest {
namespace {

using Json = nlohmann::json;

ChildResult Simctl(const std::string& line) {
    std::vector<std::wstring> words;
    std::istringstream rest(line);
    for (std::string word; rest >> word;)
        words.emplace_back(word.begin(), word.end());
    return RunChild((ProgramFolder() / "simctl.exe").wstring(), words);
}

class SimctlTest : public ChannelTest {
  protected:
    // The document of a command that must work.
    static Json Shown(const std::string& line) {
        const ChildResult run = Simctl(line + " --json");
        EXPECT_EQ(run.exitCode, 0u) << run.err;
        return Json::parse(run.out, nullptr, false);
    }
    [[nodiscard]] std::uint32_t ListFileRules() const {
        std::uint8_t reply[16] = {};
        return Send(ZOP_IOCTL_LIST_FILE_RULES, nullptr, 0, reply, sizeof(reply)).error;
    }
};

TEST_F(SimctlTest, Settings_ChangeWhatTheCommandNamesAndNothingElse) {
    const Json pairs = Json::parse(R"([{"pair": 1, "flag": 1, "count": 10}, {"pair": 2, "flag": 2, "count": 20},
                                       {"pair": 3, "flag": 3, "count": 30}, {"pair": 4, "flag": 4, "count": 40}])");
    const zotest::Rows<Json> rows = {
        {"version 1 4 2", {{"/version", "1.4.2"}}},
        {"capacity file 2", {{"/tables/1/capacity", 2}}},
        {"slots registry 16", {{"/rings/1/slots", 16}}},
        {"resume newest", {{"/resume", "newest"}}},
        {"stop refuse", {{"/refusesStop", true}}},
        {"layout 2", {{"/statsLayout", 2}}},
        {"status-reply 1 10 2 20 3 30 4 40", {{"/ownStatusReply", false}, {"/statusPairs", pairs}}},
    };
    const Json before = Shown("settings");
    for (const auto& [command, changes] : rows) {
        EXPECT_EQ(Simctl(command).exitCode, 0u) << command;
        Json expected = before;
        for (const auto& [place, value] : changes.items())
            expected[Json::json_pointer(place)] = value;
        EXPECT_EQ(Shown("settings"), expected) << command;
        EXPECT_EQ(Simctl("reset").exitCode, 0u);
    }
}

TEST_F(SimctlTest, Faults_ReachTheDriverAsTheOptionsSay) {
    const zotest::Rows<std::vector<std::uint32_t>> rows = {
        {"fail list-file-rules access-denied", {5, 0}},
        {"fail any 0xC0000001 2", {31, 31, 0}},
        {"fail 0x80000000 unsuccessful", {0}},
        {"fault list-file-rules --skip 1 --status quota-exceeded --always", {0, 1816, 1816}},
        {"fault list-file-rules --status buffer-overflow --perform --times 2", {234, 234, 0}},
    };
    for (const auto& [command, errors] : rows) {
        EXPECT_EQ(Simctl(command).exitCode, 0u) << command;
        for (const std::uint32_t error : errors)
            EXPECT_EQ(ListFileRules(), error) << command;
        EXPECT_EQ(Simctl("clear-faults").exitCode, 0u);
        EXPECT_EQ(Simulator().State().faultsPending, 0u) << command;
    }
}

TEST_F(SimctlTest, Fault_ChangesLengthAndWordsOfTheReply) {
    EXPECT_EQ(Simctl("fault list-file-rules --word 0=7 --word 2=0x10 --returned 12").exitCode, 0u);
    std::uint32_t reply[4] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_LIST_FILE_RULES, nullptr, 0, reply, sizeof(reply)).returned, 12u);
    EXPECT_EQ(std::vector<std::uint32_t>(reply, reply + 3), (std::vector<std::uint32_t>{7, 0, 16}));
}

TEST_F(SimctlTest, Signature_MakesAProcessKnownRefreshedAndUnknownAgain) {
    EXPECT_EQ(Simctl("signature 4242 1 3 --refreshed 9 8").exitCode, 0u);
    const Json known = {{"pid", 4242}, {"first", 1}, {"second", 3}, {"refreshedFirst", 9}, {"refreshedSecond", 8}};
    EXPECT_EQ(Shown("table known-process")["entries"], Json::array({known}));
    EXPECT_EQ(Simctl("signature 4242 --forget").exitCode, 0u);
    EXPECT_EQ(Simctl("signature 4242 --forget").exitCode, 1u) << "it is not known";
}

TEST_F(SimctlTest, Counters_GoOnFromTheValuesGiven) {
    EXPECT_EQ(Simctl("counters rules-added=100 events-dropped=7 17=5").exitCode, 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
    std::uint32_t block[19] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, sizeof(block)).returned, 76u);
    EXPECT_EQ(block[1 + ZOSIM_COUNTER_RULES_ADDED], 101u);
    EXPECT_EQ(block[1 + ZOSIM_COUNTER_EVENTS_DROPPED], 7u);
    EXPECT_EQ(block[1 + 17], 5u);
}

TEST_F(SimctlTest, Table_ShowsTheFieldsOfItsEntries) {
    auto file = Named<ZopFileRuleRecord>(L"\\gr\u00FC\u00DFe");
    file.isFolder = 1;
    SetField(file.filter, L"*.exe");
    SetField(file.scopePath, L"\\s");
    file.exclusive = 200;
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_FILE_RULE, file), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_REGISTRY_RULE, Named<ZopRegistryRuleRecord>(L"\\REGISTRY\\x")), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\d")), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, Named<ZopRuleRecord>(L"\\i")), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{77, 0}), 0u);
    const Json shownFile = {{"path", "\\gr\u00FC\u00DFe"}, {"folder", 1},     {"recursive", 0},
                            {"filter", "*.exe"},           {"scope", "\\s"},  {"scopeFolder", 0},
                            {"scopeRecursive", 0},         {"exclusive", 200}};
    const std::pair<const char*, Json> rows[] = {
        {"file", shownFile},
        {"registry", {{"key", "\\REGISTRY\\x"}, {"recursive", 0}}},
        {"dll", {{"path", "\\d"}, {"recursive", 0}}},
        {"registry-ignore", {{"path", "\\i"}, {"folder", 0}, {"recursive", 0}}},
        {"override", {{"pid", 77}}},
    };
    for (const auto& [table, entry] : rows)
        EXPECT_EQ(Shown(std::string("table ") + table)["entries"], Json::array({entry})) << table;
}

TEST_F(SimctlTest, Requests_ShowsTheNewestByNameWithTheirInput) {
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{0xAB}), 0u);
    EXPECT_EQ(Give(0x8000C400), 1u);
    const Json all = Shown("requests --bytes --from 2")["requests"];
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0]["input"], "ab");
    EXPECT_EQ(all[1]["command"], "0x8000C400");
    EXPECT_EQ(all[1]["status"], "0xC0000010");
    EXPECT_EQ(Shown("requests --last 1")["requests"][0]["sequence"], 3);
}

TEST_F(SimctlTest, WrongUsage_IsRefusedWithTheReasonAndSendsNothing) {
    const zotest::Rows<const char*> rows = {
        {"", "simctl --help"},
        {"instal", "unknown command 'instal'"},
        {"capacity fle 2", "'fle' is not a table"},
        {"capacity file -1", "-1"},
        {"fail any access-denied 0", "never apply"},
        {"fault any --perform", "--status"},
        {"fault any --word 4=1", "'4=1'"},
        {"fault any --delay 1 --times 2 --always", "--always"},
        {"produce events --rate 3 --stop", "--stop"},
        {"counters 18=1", "'18=1'"},
    };
    for (const auto& [command, reason] : rows) {
        const ChildResult run = Simctl(command);
        EXPECT_EQ(run.exitCode, 2u) << command;
        EXPECT_NE(run.err.find(reason), std::string::npos) << command << ": " << run.err;
        EXPECT_EQ(run.out, "") << command;
    }
    EXPECT_EQ(Simulator().State().faultsPending, 0u);
}

TEST_F(SimctlTest, Failures_AreADocumentToo) {
    const Json document = Json::parse(Simctl("layout 4 --json").out, nullptr, false);
    EXPECT_EQ(document.value("command", ""), "layout");
    EXPECT_EQ(document.value("exitCode", 0), 1);
    EXPECT_TRUE(document.value("message", "").ends_with("(error 87)")) << document;
}

TEST_F(SimctlTest, Help_ShowsAnExampleThatWorksForEveryCommand) {
    const std::string help = Simctl("--help").out;
    const char* const commands[] = {"state",    "settings",  "requests", "table", "names",  "reset",        "version",
                                    "capacity", "slots",     "resume",   "stop",  "layout", "status-reply", "inject",
                                    "produce",  "signature", "counters", "fail",  "fault",  "clear-faults"};
    for (const std::string command : commands) {
        EXPECT_NE(help.find("\n  " + command + " "), std::string::npos) << command;
        std::istringstream lines(Simctl(command + " --help").out);
        int examples = 0;
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with("  simctl ")) continue;
            ++examples;
            EXPECT_EQ(Simctl(line.substr(9)).exitCode, 0u) << line;
        }
        EXPECT_GT(examples, 0) << command;
    }
}

TEST_F(SimctlTest, Text_ShowsTheSameFactsAsTheJson) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    const std::string text = Simctl("state").out;
    EXPECT_NE(text.find("\nevents    3     1024   3 "), std::string::npos) << text;
}

// Not of the suite, whose driver its TearDownTestSuite has stopped by then.
TEST(SimctlWithoutDriver, SaysThatNoSimulatorIsRunning) {
    RemoveDriverService();
    const ChildResult run = Simctl("state --json");
    EXPECT_EQ(run.exitCode, 3u);
    EXPECT_NE(run.err.find("no simulator is running"), std::string::npos);
    EXPECT_EQ(Json::parse(run.out, nullptr, false).value("exitCode", 0), 3);
}

}  // namespace
}  // namespace zotest
