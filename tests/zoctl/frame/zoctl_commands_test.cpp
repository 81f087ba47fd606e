#include <numeric>

#include "error_text.h"
#include "zoctl_process.h"

namespace {

using namespace zotest;

class ZoctlCommands : public ZoctlTest {};

const std::string kName = "C:\\\xE6\x97\xA5\xF0\x9F\x94\x92";  // beyond every code page

TEST_F(ZoctlCommands, AddScopedFillsTheFieldOfEachOption) {
    EXPECT_TRUE(Gave(Zoctl("file add-scoped " + kName + " --scope C:\\t --folder -r --exclusive"), 0));
    const auto rules = Simulator().Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
    ASSERT_EQ(rules.size(), 1u);
    EXPECT_TRUE(FieldText(rules[0].path).ends_with(zo::WideFromUtf8(kName.substr(2))));
    EXPECT_TRUE(FieldText(rules[0].scopePath).ends_with(L"\\t"));
    EXPECT_TRUE(rules[0].isFolder == 1 && rules[0].recursive == 1 && rules[0].exclusive == 1);
    EXPECT_TRUE(rules[0].scopeIsFolder == 0 && rules[0].scopeRecursive == 0);
    const ZoctlRun list = Zoctl("rules list --table file");
    EXPECT_TRUE(Gave(list, 0, kName));
    EXPECT_EQ(list.out.find("yes ("), std::string::npos) << "the number is shown only where it is not 1\n" << list.out;
}

TEST_F(ZoctlCommands, EachStatusHasItsExitCodeAndAdvice) {
    for (const auto& [status, exitCode, name] : {std::tuple{0xC0000034u, 3, "ZOP_E_DRIVER_NOT_FOUND"},
                                                 {0xC0000022u, 5, "ZOP_E_ACCESS_DENIED"},
                                                 {0xC0000044u, 8, "ZOP_E_QUOTA_EXCEEDED"},
                                                 {0xC0000035u, 6, "ZOP_E_ALREADY_EXISTS"},
                                                 {0xC0000225u, 7, "ZOP_E_NOT_FOUND"},
                                                 {0xC000000Du, 2, "ZOP_E_INVALID_ARG"},
                                                 {0xC0000001u, 1, "ZOP_E_FAILED"}}) {
        Simulator().FailNext(ZOP_IOCTL_ADD_PROCESS_RULE, status);
        const ZoctlRun run = Zoctl("process add C:\\a\x1B.exe --json");
        ASSERT_TRUE(Gave(run, exitCode, name, {{"ok", false}, {"exitCode", exitCode}}));
        EXPECT_EQ(run.json["status"]["name"], name);
        EXPECT_NE(run.err.find("Next: " + run.json["advice"].get<std::string>()), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find('\x1B'), std::string::npos);
    }
    Simulator().SetVersion(2, 0, 0);
    EXPECT_EQ(Zoctl("status").exitCode, 4);
}

// Command lines, what their failure says, and advice that it may not give: it belongs to another kind of command.
const Rows<const char*, const char*> kFailures = {
    {"process remove C:\\none", "no such rule. [", "process."},
    {"file ignore remove C:\\none", "The path is not in the driver's list.", "rules list"},
    {"signature override remove 5", "The process is not in the driver's list.", "rules list"},
    {"signature query 5", "The driver knows no such process.", "rules list"},
    {"registry add Software", "Give a key that begins with HKLM\\", "259 characters"},
    {"process add  ", "Give a path of at most 259 characters.", "HKLM"},
    {"rules check C:\\windows", "'C:\\windows' is a folder, not a file.", "administrator"},
    {"rules check C:\\bad|name.json", "Check the named paths", "diagnostic log"},
    {"rules check C:\\none.json", "The file does not exist. [ERROR_FILE_NOT_FOUND 0x80070002]", "administrator"},
    {"driver install C:\\windows", "'C:\\windows' is a folder, not a file.", "administrator"},
    {"driver upgrade /none.sys", "The file '/none.sys' does not exist.", "in use"},
};

TEST_F(ZoctlCommands, AFailureSaysWhatFailedAndGivesAdviceThatApplies) {
    for (const auto& [line, words, notSaid] : kFailures) {
        const ZoctlRun run = Zoctl(line);
        EXPECT_TRUE(Gave(run, run.exitCode, words)) << line;
        EXPECT_EQ(run.err.find(notSaid), std::string::npos) << line << "\n" << run.err;
    }
    EXPECT_TRUE(Gave(Zoctl("rules check C:\\bad|name.json"), 1,
                     "name.json': " + zo::ErrorText(ERROR_INVALID_NAME) + " [HRESULT_FROM_WIN32(123) 0x8007007B]"));
    Simulator().FailNext(ZOP_IOCTL_GET_STATS, 0xC0000001);
    EXPECT_EQ(Zoctl("stats").err.find("name could not be converted"), std::string::npos);
}

TEST_F(ZoctlCommands, AWrongCommandLineSendsNothing) {
    for (const std::string line :
         {"process add  ", "registry add Software\\X", "file add-scoped C:\\f", "file ignore add C:\\f -r",
          "driver set-start 7", "signature policy --mode 256", "signature policy --min-level 256", "signature query -1",
          "rules list --table none", "events --follow", "events --for 1", "events --interval 5",
          "events --registry --from 1", "events --registry-from 1", "events --jsonl", "crash list --max-bytes -1",
          "force-crash"})
        EXPECT_TRUE(Gave(Zoctl(line + " --json"), 2, "Next: ", {{"ok", false}})) << line;
    for (const std::string line : {"process add", "file ignore add", "signature query", "signature override add",
                                   "rules check", "rules diff", "rules apply", "vocabulary check"})
        EXPECT_TRUE(Gave(Zoctl(line), 2, " is required")) << line;
    EXPECT_TRUE(Gave(Zoctl("--json"), 2, "Next: ", {{"ok", false}}));
    for (const char* group : {"", "driver"})
        EXPECT_TRUE(Gave(Zoctl(group), 2, "Next: ")) << group;
    EXPECT_TRUE(
        Gave(Zoctl("file add-folder C:\\f --filter " + std::string(128, 'x')), 2, "longer than 127 characters"));
    EXPECT_EQ(Sent(), Codes{});
    const ZoctlRun nameless = Zoctl("nonsense --jsonl");
    EXPECT_TRUE(Gave(nameless, 2, "\nzoctl: ", {{"command", nullptr}}));
    EXPECT_EQ(std::count(nameless.out.begin(), nameless.out.end(), '\n'), 1) << nameless.out;
    EXPECT_TRUE(Gave(Zoctl("--version"), 0, "zoctl 1."));
    EXPECT_TRUE(Gave(Zoctl("--version"), 0, "development settings: ZO_"));
}

TEST_F(ZoctlCommands, AMistypedCommandIsNamedWithTheOneThatWasMeant) {
    const std::pair<const char*, const char*> cases[] = {
        {"driver instal C:\\a.sys", "unknown command 'instal'; did you mean 'install'?"},
        {"drivr", "unknown command 'drivr'; did you mean 'driver'?"},
        {"file ignore ad C:\\a", "unknown command 'ad'; did you mean 'add'?"},
        {"crash nonsense", "unknown command 'nonsense'\n"},
        {"help driver instal", "unknown command 'instal'; did you mean 'install'?"},
        {"nonsense /?", "unknown command 'nonsense'\n"},
        {"file nonsense -h", "unknown command 'nonsense'\n"},
        {"sign C:\\a", "--manifest is required\n"},  // has groups of options, and no commands below it
    };
    for (const auto& [line, words] : cases)
        EXPECT_TRUE(Gave(Zoctl(line), 2, words)) << line;
}

TEST_F(ZoctlCommands, HelpIsShownHoweverItIsAskedFor) {
    for (const std::string line : {"--help", "-h", "help", "/?"})
        EXPECT_TRUE(Gave(Zoctl(line), 0, "Exit codes:")) << line;
    for (const std::string line : {"file ignore add --help", "help file ignore add", "file ignore add /?"})
        EXPECT_TRUE(Gave(Zoctl(line), 0, "zoctl file ignore add C:\\")) << line;
    EXPECT_TRUE(Gave(Zoctl("help --help"), 0, "zoctl help --man driver"));
    EXPECT_TRUE(Gave(Zoctl("help driver"), 0, "Show this help\n"));
    EXPECT_TRUE(Gave(Zoctl("help driver"), 0, "\"zoctl driver COMMAND --help\" shows a command's options"));
}

TEST_F(ZoctlCommands, StatusSignatureAndCountersShowTheDriversNumbers) {
    Simulator().SetVersion(1, 2, 3);
    Simulator().SetStatusReply({1, 0, 255, 3}, {1, 2, 0xFFFFFFFF, 4});
    const ZoctlRun status = Zoctl("status");
    EXPECT_EQ(status.err + status.out, R"(DRIVER
version     1.2.3
protection  on
pair 1      flag 1  count 1
pair 2      flag 0  count 2
pair 3      flag 255  count 4294967295
pair 4      flag 3  count 4
)");
    EXPECT_TRUE(Gave(Zoctl("status --json"), 0, "",
                     {{"driverVersion", "1.2.3"},
                      {"enabled", true},
                      {"pairs", Json::parse(R"([{"flag": 1, "count": 1}, {"flag": 0, "count": 2},
                                                {"flag": 255, "count": 4294967295}, {"flag": 3, "count": 4}])")}}));
    // One number given: the other stays.
    EXPECT_EQ(Zoctl("signature policy --mode 3 --min-level 9").exitCode, 0);
    EXPECT_TRUE(Gave(Zoctl("signature policy --mode 0 --json"), 0, "", {{"minLevel", 9}}));
    EXPECT_EQ(Simulator().State().signatureMode, 0u);
    EXPECT_EQ(Zoctl("dll enable").exitCode, 0);
    EXPECT_EQ(Simulator().State().dllFilterEnabled, 1u);
    Simulator().SetPidSignature({4711, 1, 0, 0, 1, 0});
    EXPECT_TRUE(Gave(Zoctl("signature query 4711 --json"), 0, "", {{"first", true}}));
    EXPECT_TRUE(Gave(Zoctl("signature refresh 4711 --json"), 0, "", {{"second", true}}));
    ZoSimCounters counters{};
    std::iota(std::begin(counters.values), std::end(counters.values), 100);
    Simulator().SetCounters(counters);
    Json stats = Zoctl("stats --json").json;
    EXPECT_EQ(stats["unsignedBypassAttempts"], 100 + ZOSIM_COUNTER_UNSIGNED_BYPASS);
    stats["counters"].insert(stats["counters"].begin() + ZOSIM_COUNTER_UNSIGNED_BYPASS, nullptr);
    ASSERT_EQ(stats["counters"].size(), ZOSIM_COUNTERS);
    for (std::uint32_t i = ZOSIM_COUNTER_REFUSED; i < ZOSIM_COUNTERS; ++i) {  // the first counts these requests
        if (i == ZOSIM_COUNTER_UNSIGNED_BYPASS) continue;
        EXPECT_EQ(stats["counters"][i], (Json{{"offset", 4 + 4 * i}, {"value", 100 + i}}));
    }
    Simulator().SetStatsVersion(2);
    EXPECT_TRUE(Gave(Zoctl("stats --json"), 0, "", {{"unsignedBypassAttempts", nullptr}}));
    EXPECT_TRUE(Gave(Zoctl("stats"), 0, "Layout version 2; "));
}

TEST_F(ZoctlCommands, CopyDirectoryCopiesAndCounts) {
    const TempFolder folder;
    WriteFileBytes(folder / "from" / "a b.txt", "x");
    for (const std::string option : {"--option1", "--option2"}) {
        EXPECT_TRUE(
            Gave(RunZoctl({"copy-directory", (folder / "from").string(), (folder / "to").string(), option, "--json"}),
                 0, "", {{"filesCopied", 1}}));
        const auto request = RecordOf<ZoProtectorCopyDirectoryRequest>(Simulator().LastRequest());
        EXPECT_EQ(request.option1, option == "--option1" ? 1 : 0);
        EXPECT_EQ(request.option2, option == "--option2" ? 1 : 0);
    }
    EXPECT_EQ(ReadFileBytes(folder / "to" / "a b.txt"), "x");
}

TEST_F(ZoctlCommands, RefusesAnEmptyKeyFromStandardInput) {
    EXPECT_TRUE(Gave(Zoctl("keys thumbprint -"), 33, "Standard input is empty."));
}

TEST_F(ZoctlCommands, ADryRunNeedsTheTemporaryFolderAndLeavesItAsItWas) {
    const TempFolder folder;
    const std::string keys = (folder / "keys").string();
    EXPECT_EQ(RunZoctl({"keys", "generate", keys}).exitCode, 0);
    const auto dryRun = [&](const std::wstring& temporary) {
        const ScopedTmp tmp(temporary);
        return RunZoctl({"sign", keys, "-m", (folder / "m").string(), "-k", keys, "--dry-run"});
    };
    EXPECT_TRUE(Gave(dryRun((folder / "none").wstring()), 1, "The temporary folder cannot be used: "));
    const std::wstring longest = (folder / std::wstring(244 - folder.Path().wstring().size(), L'n')).wstring();
    std::filesystem::create_directory(longest);  // 246 characters with the backslash at its end
    EXPECT_TRUE(Gave(dryRun(longest), 0));
    std::filesystem::create_directory(longest + L"n");
    EXPECT_TRUE(Gave(dryRun(longest + L"n"), 1, "cannot be used: " + zo::ErrorText(ERROR_FILENAME_EXCED_RANGE)));
    WriteFileBytes(folder / "tmp" / "zos1.tmp", "mine");
    EXPECT_TRUE(Gave(dryRun((folder / "tmp").wstring()), 0));
    EXPECT_EQ(ReadFileBytes(folder / "tmp" / "zos1.tmp"), "mine");
    EXPECT_TRUE(std::filesystem::remove(folder / "tmp" / "zos1.tmp") && std::filesystem::is_empty(folder / "tmp"));
}

TEST_F(ZoctlCommands, EventsShowLossesInTheirPlaceAndContinueFromAPosition) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 12);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 3);
    std::vector<Json> lines;
    std::istringstream text(Zoctl("events --both --jsonl --capacity 100").out);
    for (std::string line; std::getline(text, line);)
        lines.push_back(Json::parse(line));
    ASSERT_EQ(lines.size(), 1u + ZOP_EVENT_RING_SIZE + 3 + 2);
    EXPECT_EQ(lines[0], (Json{{"type", "lost"}, {"ring", "main"}, {"count", 12}}));
    EXPECT_EQ(lines[1]["strings"], Json({"\\Device\\HarddiskVolume1\\Simulated\\event_0000000C.exe"}));
    EXPECT_TRUE(lines[1]["hex"].get<std::string>().starts_with("0c00000001000000"));
    EXPECT_EQ(lines[1]["hex"].get<std::string>().size(), 2u * 562);
    EXPECT_EQ(lines[101]["ring"], "registry");  // the rings are polled in turn
    EXPECT_EQ(lines[101]["strings"], Json({"\\REGISTRY\\MACHINE\\SOFTWARE\\Simulated\\event_00000000"}));
    Json total = lines[lines.size() - 2];
    const std::string onwards = "events --from " + total["position"].dump();
    total.erase("position");
    EXPECT_EQ(total,
              Json::parse(R"({"type": "total", "ring": "main", "received": 1024, "lost": 12, "produced": 1036})"));

    // From that position on: nothing new, then what came meanwhile.
    EXPECT_TRUE(Gave(Zoctl(onwards + " --json"), 0, "", {{"records", Json::array()}}));
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 2);
    const ZoctlRun more = Zoctl(onwards);
    EXPECT_TRUE(Gave(more, 0, "event_0000040D.exe"));
    EXPECT_TRUE(Gave(more, 0, "2 received + 0 lost = 2 produced"));
    constexpr std::size_t kAround = 8;  // the ring's name and blanks around the bytes in hexadecimal
    EXPECT_EQ(more.out.find('\''), kAround + 2 * 16) << "a line begins with the first bytes";
    EXPECT_EQ(Zoctl(onwards + " --bytes").out.find('\''), kAround + 2 * 562);
    EXPECT_TRUE(Gave(Zoctl("events --registry --registry-from 2"), 0,
                     "registry: 1 received + 0 lost = 1 produced; continue with --registry-from 3\n"));
}

TEST_F(ZoctlCommands, EventsFailOnLossOnlyWhenEventsWereLost) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 1);
    EXPECT_TRUE(Gave(Zoctl("events --fail-on-loss"), 60, "1 event was lost."));
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 11);
    EXPECT_TRUE(Gave(Zoctl("events --fail-on-loss"), 60, "12 events were lost."));
    const ZoctlRun text = Zoctl("events");
    EXPECT_TRUE(Gave(text, 0, "main  LOST 12 events, overwritten before anyone read them\nmain  0c00000001000000"));
    EXPECT_TRUE(Gave(text, 0, "main: 1024 received + 12 lost = 1036 produced; continue with --from 1036\n"));
    EXPECT_TRUE(Gave(Zoctl("events --fail-on-loss --json --from 1036"), 0));
}

TEST_F(ZoctlCommands, EventsEndForABusyDriverAFailureAndAClosedReader) {
    Simulator().SetProducer(ZOSIM_RING_REGISTRY, 512);
    EXPECT_TRUE(Gave(Zoctl("events --registry --capacity 512"), 0, "16384 received + 0 lost"));
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    Simulator().FailNext(ZOP_IOCTL_DRAIN_EVENTS, 0xC0000001);
    EXPECT_TRUE(Gave(Zoctl("events"), 1, "0 received + 0 lost = 0 produced"));
    ChildOptions options;
    options.deafReader = true;
    EXPECT_TRUE(Gave(
        Zoctl("events --jsonl", options), 1,
        "main: 0 received + 0 lost = 0 produced; continue with --from 0\nzoctl: the output could not be written.\n"));
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 1500);  // more between two polls than the ring holds
    EXPECT_GE(Zoctl("events --json").json["totals"][0]["produced"], 16384) << "lost events count as well";
}

TEST_F(ZoctlCommands, FollowAccountsForEveryEventWhenSomeAreLost) {
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 1500);  // a poll's worth and more than the ring holds
    const std::string out = Zoctl("events --follow --jsonl --capacity 1024 --interval 50 --for 1").out;
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 0);
    const Json total = Json::parse(out.substr(out.rfind("{\"type\":\"total\"")));
    const ZoSimRingState ring = Simulator().State().rings[ZOSIM_RING_EVENTS];
    EXPECT_EQ(total["produced"], total["position"]);  // sequence numbers begin at 0
    EXPECT_EQ(total["lost"], ring.dropped);
    EXPECT_GT(total["lost"], 0);
    EXPECT_EQ(total["received"], ring.handedOut);
}

}  // namespace
