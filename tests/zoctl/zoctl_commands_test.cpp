#include <sstream>

#include "owned_handles.h"
#include "zoctl_process.h"

namespace {

using zotest::Json;
using zotest::RunZoctl;
using zotest::SentCodes;
using zotest::Words;
using zotest::ZoctlRun;

using Codes = std::vector<std::uint32_t>;

class ZoctlCommands : public zotest::DriverTest {
  protected:
    [[nodiscard]] std::size_t Held(std::uint32_t table) const { return Simulator().State().tableCount[table]; }
};

// In this order: what is added first is removed later. Each line is one run, and one command to the driver.
TEST_F(ZoctlCommands, EachSendsItsOneCommandAndSaysSoInJson) {
    const struct {
        const char* line;
        std::uint32_t code;
        Json facts;  // members that the document has
    } cases[] = {
        {"disable", ZOP_IOCTL_SET_MASTER_ENABLED, {{"enabled", false}}},
        {"enable", ZOP_IOCTL_SET_MASTER_ENABLED, {{"enabled", true}}},
        {"process add C:\\a.exe", ZOP_IOCTL_ADD_PROCESS_RULE, {{"path", "C:\\a.exe"}}},
        {"process add-folder C:\\f -r", ZOP_IOCTL_ADD_PROCESS_RULE, {{"folder", "C:\\f"}, {"recursive", true}}},
        {"process remove c:\\A.exe", ZOP_IOCTL_REMOVE_PROCESS_RULE, {{"path", "c:\\A.exe"}}},
        {"process clear", ZOP_IOCTL_CLEAR_PROCESS_RULES, Json::object()},
        {"file add status", ZOP_IOCTL_ADD_FILE_RULE, {{"path", "status"}}},
        {"file add-folder C:\\f --filter *.\xC3\xA9",
         ZOP_IOCTL_ADD_FILE_RULE,
         {{"filter", "*.\xC3\xA9"}, {"recursive", false}}},
        {"file add-scoped C:\\s --scope C:\\t --folder -r --exclusive",
         ZOP_IOCTL_ADD_FILE_RULE,
         {{"scope", "C:\\t"}, {"exclusive", true}, {"scopeFolder", false}}},
        {"file remove C:\\f", ZOP_IOCTL_REMOVE_FILE_RULE, {{"path", "C:\\f"}}},
        {"file enable", ZOP_IOCTL_ENABLE_FILE_PROTECT, {{"enabled", true}}},
        {"file disable", ZOP_IOCTL_ENABLE_FILE_PROTECT, {{"enabled", false}}},
        {"file ignore add C:\\i --folder -r", ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, {{"recursive", true}}},
        {"file ignore remove C:\\i", ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS, {{"path", "C:\\i"}}},
        {"file ignore clear", ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, Json::object()},
        {"registry add HKLM\\X -r", ZOP_IOCTL_ADD_REGISTRY_RULE, {{"key", "HKLM\\X"}, {"recursive", true}}},
        {"registry remove hklm\\x", ZOP_IOCTL_REMOVE_REGISTRY_RULE, {{"key", "hklm\\x"}}},
        {"registry clear", ZOP_IOCTL_CLEAR_REGISTRY_RULES, Json::object()},
        {"registry ignore add C:\\i", ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, {{"folder", false}}},
        {"registry ignore remove C:\\i", ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS, Json::object()},
        {"registry ignore clear", ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES, Json::object()},
        {"dll enable", ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, {{"enabled", true}}},
        {"dll add C:\\w", ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, {{"recursive", false}}},
        {"dll remove C:\\w", ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER, Json::object()},
        {"dll clear", ZOP_IOCTL_CLEAR_DLL_WHITELIST, Json::object()},
        {"signature policy", ZOP_IOCTL_GET_SIGNATURE_POLICY, {{"mode", 0}, {"changed", false}}},
        {"signature override add 0", ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, {{"pid", 0}}},
        {"signature override remove 0", ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, {{"pid", 0}}},
        {"signature override clear", ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES, Json::object()},
        {"rules list --table dll", ZOP_IOCTL_LIST_DLL_WHITELIST, Json::object()},
        {"stats", ZOP_IOCTL_GET_STATS, {{"version", 3}, {"unsignedBypassAttempts", 0}}},
        {"force-crash --yes", ZOP_IOCTL_FORCE_CRASH, Json::object()},
    };
    for (const auto& one : cases) {
        const SentCodes sent(Simulator());
        std::vector<std::string> words = Words(one.line);
        words.push_back("--json");
        const ZoctlRun run = RunZoctl(words);
        EXPECT_EQ(run.exitCode, 0) << one.line << "\n" << run.err;
        EXPECT_EQ(sent.Codes(), Codes{one.code}) << one.line;
        ASSERT_TRUE(run.json.is_object()) << one.line << "\n" << run.out;
        EXPECT_EQ(run.json["ok"], true) << one.line;
        EXPECT_TRUE(std::string(one.line).starts_with(run.json["command"].get<std::string>())) << run.json["command"];
        for (const auto& [name, value] : one.facts.items())
            EXPECT_EQ(run.json[name], value) << one.line << " " << name;
    }
    // The rules of "status" and C:\s are left; the scoped one says whether its options found their fields.
    const auto rules = Simulator().Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
    ASSERT_EQ(rules.size(), 2u);
    const ZopFileRuleRecord& scoped = rules[rules[0].exclusive ? 0 : 1];
    EXPECT_TRUE(zotest::FieldText(scoped.path).ends_with(L"\\s"));
    EXPECT_TRUE(zotest::FieldText(scoped.scopePath).ends_with(L"\\t"));
    EXPECT_EQ(std::vector<int>({scoped.isFolder, scoped.recursive, scoped.scopeIsFolder, scoped.scopeRecursive}),
              std::vector<int>({1, 1, 0, 0}));
    EXPECT_EQ(Simulator().State().forceCrashes, 1u);
}

TEST_F(ZoctlCommands, PathsBeyondTheCodePageArriveUnchanged) {
    const std::string path = "C:\\\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x94\x92\\a b.exe";
    EXPECT_EQ(RunZoctl({"process", "add", path}).exitCode, 0);
    const auto rules = Simulator().Table<ZopRuleRecord>(ZOSIM_TABLE_PROCESS);
    ASSERT_EQ(rules.size(), 1u);
    EXPECT_TRUE(zotest::FieldText(rules[0].path).ends_with(zo::WideFromUtf8(path.substr(2))));
    const ZoctlRun list = RunZoctl({"rules", "list", "--table", "process"});
    EXPECT_NE(list.out.find(path), std::string::npos) << list.out;
}

TEST_F(ZoctlCommands, EachFailureHasItsExitCodeAndSaysWhatToDo) {
    const struct {
        std::uint32_t ntStatus;
        int exitCode;
        const char* name;
    } cases[] = {
        {0xC0000034, 3, "ZOP_E_DRIVER_NOT_FOUND"}, {0xC0000022, 5, "ZOP_E_ACCESS_DENIED"},
        {0xC0000044, 8, "ZOP_E_QUOTA_EXCEEDED"},   {0xC0000035, 6, "ZOP_E_ALREADY_EXISTS"},
        {0xC0000225, 7, "ZOP_E_NOT_FOUND"},        {0xC000000D, 2, "ZOP_E_INVALID_ARG"},
        {0xC0000001, 1, "ZOP_E_FAILED"},
    };
    for (const auto& one : cases) {
        Simulator().FailNext(ZOP_IOCTL_ADD_PROCESS_RULE, one.ntStatus);
        const ZoctlRun run = RunZoctl({"process", "add", "C:\\a\x1B.exe", "--json"});
        EXPECT_EQ(run.exitCode, one.exitCode) << one.name;
        ASSERT_TRUE(run.json.is_object()) << run.out;
        EXPECT_EQ(run.json["ok"], false);
        EXPECT_EQ(run.json["exitCode"], one.exitCode);
        EXPECT_EQ(run.json["status"]["name"], one.name);
        EXPECT_EQ(run.json["status"]["value"].get<std::string>().size(), 10u);
        EXPECT_NE(run.err.find(one.name), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("Next: " + run.json["advice"].get<std::string>()), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find('\x1B'), std::string::npos);
    }
    Simulator().SetVersion(2, 0, 0);
    EXPECT_EQ(RunZoctl({"status"}).exitCode, 4);
}

TEST_F(ZoctlCommands, AWrongCommandLineSendsNothing) {
    const std::string longFilter = "file add-folder C:\\f --filter " + std::string(128, 'x') + " ";
    const SentCodes sent(Simulator());
    for (const std::string line : {"",
                                   "nonsense ",
                                   "process ",
                                   "process add ",
                                   "process add C:\\a C:\\b ",
                                   "process add C:\\a --recursive ",
                                   longFilter.c_str(),
                                   "file add-scoped C:\\f ",
                                   "file ignore add C:\\f -r ",
                                   "driver set-start 7 ",
                                   "signature policy --mode 256 ",
                                   "signature query -1 ",
                                   "rules list --table none ",
                                   "events --capacity 0 ",
                                   "events --follow ",
                                   "events --for 1 ",
                                   "events --interval 5 ",
                                   "events --registry --from 1 ",
                                   "events --registry-from 1 ",
                                   "force-crash ",
                                   "process add  ",
                                   "registry add Software\\X "}) {
        const ZoctlRun run = RunZoctl(Words(line + "--json"));
        EXPECT_EQ(run.exitCode, 2) << line << run.out;
        EXPECT_TRUE(run.json.is_object()) << run.out;
        EXPECT_NE(run.err.find("Next: "), std::string::npos) << run.err;
    }
    EXPECT_EQ(sent.Codes(), Codes{});
    const ZoctlRun nameless = RunZoctl({"nonsense", "--jsonl"});
    EXPECT_EQ(std::count(nameless.out.begin(), nameless.out.end(), '\n'), 1) << nameless.out;
    EXPECT_EQ(nameless.json["command"], nullptr);
    EXPECT_TRUE(nameless.err.starts_with("zoctl: ")) << nameless.err;
}

TEST_F(ZoctlCommands, HelpTeachesEveryCommand) {
    const ZoctlRun root = RunZoctl({"--help"});
    EXPECT_EQ(root.exitCode, 0);
    for (const char* word : {"doctor", "driver", "rules", "Exit codes:", "130"}) {
        EXPECT_NE(root.out.find(word), std::string::npos) << word;
    }
    const ZoctlRun leaf = RunZoctl({"file", "ignore", "add", "--help"});
    EXPECT_NE(leaf.out.find("zoctl file ignore add C:\\"), std::string::npos) << leaf.out;
    EXPECT_NE(leaf.out.find("--json"), std::string::npos);
    EXPECT_NE(RunZoctl({"--version"}).out.find("zoctl 1."), std::string::npos);
}

TEST_F(ZoctlCommands, StatusSignatureAndCountersShowTheDriversNumbers) {
    Simulator().SetStatusReply({1, 0, 255, 3}, {1, 2, 0xFFFFFFFF, 4});
    const Json status = RunZoctl({"status", "--json"}).json;
    EXPECT_EQ(status["driverVersion"], "1.0.0");
    EXPECT_EQ(status["pairs"], (Json{{{"flag", 1}, {"count", 1}},
                                     {{"flag", 0}, {"count", 2}},
                                     {{"flag", 255}, {"count", 0xFFFFFFFF}},
                                     {{"flag", 3}, {"count", 4}}}));
    // One number given: the other stays.
    EXPECT_EQ(RunZoctl({"signature", "policy", "--mode", "3", "--min-level", "9"}).exitCode, 0);
    const Json policy = RunZoctl({"signature", "policy", "--mode", "4", "--json"}).json;
    EXPECT_EQ(policy["minLevel"], 9);
    EXPECT_EQ(Simulator().State().signatureMode, 4u);

    Simulator().SetPidSignature({4711, 1, 0, 0, 1, 0});
    EXPECT_EQ(RunZoctl({"signature", "query", "4711", "--json"}).json["first"], true);
    EXPECT_EQ(RunZoctl({"signature", "refresh", "4711", "--json"}).json["second"], true);
    EXPECT_EQ(RunZoctl({"signature", "query", "1"}).exitCode, 7);

    ZoSimCounters counters{};
    counters.values[ZOSIM_COUNTER_UNSIGNED_BYPASS] = 5;
    Simulator().SetCounters(counters);
    EXPECT_EQ(RunZoctl({"stats", "--json"}).json["unsignedBypassAttempts"], 5);
    Simulator().SetStatsVersion(2);
    EXPECT_EQ(RunZoctl({"stats", "--json"}).json["unsignedBypassAttempts"], nullptr);
}

TEST_F(ZoctlCommands, CopyIdentifierAndForcedCrash) {
    const zotest::TempFolder folder;
    zotest::WriteFileBytes(folder / "from" / "a.txt", "x");
    const std::string from = zo::Utf8FromWide((folder / "from").wstring());
    const std::string to = zo::Utf8FromWide((folder / "to").wstring());
    const ZoctlRun copy = RunZoctl({"copy-directory", from, to, "--option1", "--option2", "--json"});
    EXPECT_EQ(copy.exitCode, 0) << copy.err;
    EXPECT_EQ(copy.json["filesCopied"], 1);
    EXPECT_EQ(zotest::ReadFileBytes(folder / "to" / "a.txt"), "x");

    const ZoctlRun id = RunZoctl({"hardware-id"});
    EXPECT_EQ(id.out.size(), 65u);
    EXPECT_EQ(id.out.find_first_not_of("0123456789ABCDEF"), 64u);

    // Nobody to ask: standard input is no terminal.
    EXPECT_EQ(RunZoctl({"force-crash"}).exitCode, 2);
    EXPECT_EQ(Simulator().State().forceCrashes, 0u);
}

TEST_F(ZoctlCommands, EventsTellLossesWhereTheyAreAndAddUp) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 12);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 3);
    const ZoctlRun run = RunZoctl({"events", "--both", "--jsonl", "--capacity", "100"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::vector<Json> lines;
    std::istringstream text(run.out);
    for (std::string line; std::getline(text, line);)
        lines.push_back(Json::parse(line));
    ASSERT_EQ(lines.size(), 1u + ZOP_EVENT_RING_SIZE + 3 + 2);
    EXPECT_EQ(lines[0], (Json{{"type", "lost"}, {"ring", "main"}, {"count", 12}}));
    EXPECT_EQ(lines[1]["strings"], Json({"\\Device\\HarddiskVolume1\\Simulated\\event_0000000C.exe"}));
    EXPECT_EQ(lines[1]["hex"].get<std::string>().substr(0, 16), "0c00000001000000");
    EXPECT_EQ(lines[1]["hex"].get<std::string>().size(), 2u * 562);
    const auto registry =
        std::find_if(lines.begin(), lines.end(), [](const Json& l) { return l["ring"] == "registry"; });
    EXPECT_EQ(registry - lines.begin(), 101);  // the rings are polled in turn
    EXPECT_EQ((*registry)["strings"], Json({"\\REGISTRY\\MACHINE\\SOFTWARE\\Simulated\\event_00000000"}));
    const Json& total = lines[lines.size() - 2];
    EXPECT_EQ(total["received"], ZOP_EVENT_RING_SIZE);
    EXPECT_EQ(total["lost"], 12);
    EXPECT_EQ(total["produced"], Simulator().State().rings[ZOSIM_RING_EVENTS].produced);

    // Going on from there: nothing new, then what came meanwhile.
    const std::string position = std::to_string(total["position"].get<std::uint32_t>());
    EXPECT_EQ(RunZoctl({"events", "--from", position, "--json"}).json["records"], Json::array());
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 2);
    const ZoctlRun more = RunZoctl({"events", "--from", position});
    EXPECT_NE(more.out.find("event_0000040D.exe"), std::string::npos) << more.out;
    EXPECT_NE(more.out.find("2 received + 0 lost = 2 produced"), std::string::npos) << more.out;
}

// Neither a driver that is always busy nor a reader that is gone leaves the caller without an end and totals.
TEST_F(ZoctlCommands, EventsEndWithoutAnEndOfEvents) {
    Simulator().SetProducer(ZOSIM_RING_REGISTRY, 512);
    const ZoctlRun busy = RunZoctl({"events", "--registry", "--capacity", "512"});
    EXPECT_EQ(busy.exitCode, 0) << busy.err;
    EXPECT_NE(busy.out.find("16384 received + 0 lost"), std::string::npos) << busy.out.substr(busy.out.size() - 100);
    Simulator().SetProducer(ZOSIM_RING_REGISTRY, 0);

    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    zotest::ChildOptions options;
    options.deafReader = true;
    const ZoctlRun deaf = RunZoctl({"events", "--jsonl"}, options);
    EXPECT_EQ(deaf.exitCode, 1);
    EXPECT_NE(deaf.err.find("main: 0 received + 0 lost = 0 produced; go on with --from 0"), std::string::npos)
        << deaf.err;
}

TEST_F(ZoctlCommands, FollowingEventsAccountsForEveryOneAtALoadThatLoses) {
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 1500);  // a poll's worth and more than the ring holds
    const ZoctlRun run =
        RunZoctl({"events", "--follow", "--jsonl", "--capacity", "1024", "--interval", "50", "--for", "1"});
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 0);
    const std::size_t last = run.out.rfind("{\"type\":\"total\"");
    ASSERT_NE(last, std::string::npos) << run.err;
    const Json total = Json::parse(run.out.substr(last));
    const ZoSimRingState ring = Simulator().State().rings[ZOSIM_RING_EVENTS];
    EXPECT_EQ(total["produced"], total["position"]);  // sequence numbers begin at 0
    EXPECT_EQ(total["lost"], ring.dropped);
    EXPECT_GT(total["lost"], 0);
    EXPECT_EQ(total["received"], ring.handedOut);
    // A driver that fails in between: the total is told all the same.
    Simulator().FailNext(ZOP_IOCTL_DRAIN_EVENTS, 0xC0000001);
    const ZoctlRun failed = RunZoctl({"events", "--json"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.json["totals"][0]["produced"], 0);
}

TEST(ZoctlSeal, HoldsNowhereWhereASealedFolderCannotBeListed) {
    const zotest::TempFolder folder;
    const std::filesystem::path shut = folder / "tree" / "shut";
    std::filesystem::create_directories(shut);
    const auto run = [&folder](const char* verb) {
        return RunZoctl({verb, (folder / "tree").string(), "-m", (folder / "m").string(), "-k",
                         (folder / "keys").string(), "--json"});
    };
    ASSERT_EQ(run("sign").exitCode, 0);
    const zo::OwnedFile held(
        CreateFileW(shut.c_str(), FILE_LIST_DIRECTORY, 0, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    ASSERT_TRUE(held);
    const ZoctlRun verify = run("verify");
    EXPECT_EQ(verify.exitCode, 34) << verify.out;
    EXPECT_NE(verify.err.find("shut"), std::string::npos) << verify.err;
}

}  // namespace
