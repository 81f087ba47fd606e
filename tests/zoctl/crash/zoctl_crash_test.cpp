// "zoctl crash": what it shows, what it sends and what it does not. A crash server runs beside it (with_server.sh).

#include "owned_handles.h"
#include "reporter_fixture.h"
#include "zoctl_process.h"

namespace {

using namespace zocrashtest;
using namespace zotest;

class ZoctlCrash : public ServerTest {
  protected:
    ZoctlCrash() {
        AddDump("1.dmp", kOurs, kBase + 1);
        AddDump("2.dmp", kForeign, kBase + 2);
        AddDump("3.dmp", kNoDump, kBase + 3);
        NewCrash();
    }

    std::string Dump(const char* name) { return (dumps_ / name).string(); }

    // "crash COMMAND ..." with this test's folders, record and server where the command takes them.
    ZoctlRun Crash(Strings words) {
        const std::string command = words.front();
        words.insert(words.begin(), "crash");
        if (command == "list" || command == "run") words.insert(words.end(), {"--dumps", dumps_.string()});
        if (command != "analyse") words.insert(words.end(), {"--record", record_.string()});
        if (command == "run" || command == "upload") words.insert(words.end(), {"--server", Url()});
        return RunZoctl(words);
    }

    // One member of every dump.
    static std::string Each(const ZoctlRun& run, const char* member) {
        std::string values;
        for (const Json& dump : run.json["dumps"])
            values += dump.value(member, Json()).dump() + " ";
        return values;
    }

    // The document's counters in their order.
    static std::string Numbers(const ZoctlRun& run) {
        std::string numbers;
        for (const char* name : {"found", "notAnalysed", "notSelected", "notReached", "selected", "accepted",
                                 "alreadyKnown", "queriesFailed", "heldBack", "uploaded", "uploadsFailed"}) {
            numbers += run.json["counters"][name].dump() + " ";
        }
        return numbers;
    }
};

TEST_F(ZoctlCrash, ShowsWithoutSendingOrMovingTheRecord) {
    SetRecord(kBase);
    const std::size_t before = Posts();
    const ZoctlRun list = Crash({"list", "--json"});
    EXPECT_TRUE(Gave(list, 1));  // one could not be analysed
    EXPECT_EQ(Numbers(list), "3 1 0 0 2 0 0 0 2 0 0 ");
    EXPECT_EQ(Each(list, "matched"), "[\"ZoProtector\"] [] [] ");
    EXPECT_EQ(Each(list, "failure"), "null null \"0x80070570\" ");
    EXPECT_EQ(list.json["dumps"][0]["signature"].get<std::string>().size(), 32u);
    const ZoctlRun text = Crash({"list", "--target", "STORAGE+0x", "--target", "nt+"});
    EXPECT_TRUE(Gave(text, 1, "STORAGE+0x|nt+"));
    EXPECT_TRUE(Gave(text, 1, "3 new, 1 could not be analysed, 2 match a target."));
    EXPECT_TRUE(Gave(Crash({"analyse", Dump("1.dmp")}), 0, "<Cmd>1</Cmd>"));

    const ZoctlRun dry = Crash({"run", "--dry-run", "--json", "--app-name", "Dry", "--lcid", "7"});
    EXPECT_TRUE(Gave(dry, 1, "", {{"sent", false}, {"server", Url()}}));
    EXPECT_EQ(Numbers(dry), "3 1 1 0 1 0 0 0 1 0 0 ");
    const std::string query = dry.json["dumps"][0]["query"];
    EXPECT_EQ(Field(query, "AppName") + Field(query, "LCID"), "Dry7");
    EXPECT_FALSE(dry.json["dumps"][1].contains("query"));
    EXPECT_EQ(Posts(), before);
    EXPECT_EQ(Record(), kBase);
}

TEST_F(ZoctlCrash, TakesTargetNamesInTheCodePageOfTheEngine) {
    Script("OutputStackTrace say caf\xE9\n");
    const ZoctlRun list = Crash({"list", "--json", "--target", "CAF\xC3\x89"});
    EXPECT_EQ(Each(list, "matched"), "[\"CAF\xC3\x89\"] [\"CAF\xC3\x89\"] [] ");

    Configure();
    const char* names[] = {"\xE9"};
    api_.setTargets(names, 1);
    api_.networkOk();
    Run();
    EXPECT_STREQ(stats_.matchedDrivers, L"\xE9;\xE9");
}

TEST_F(ZoctlCrash, SendsEachDumpOnceAndTellsWhatBecameOfIt) {
    // Whoever wrote the dump may still have it open.
    const zo::OwnedFile writer(CreateFileW((dumps_ / "1.dmp").c_str(), GENERIC_WRITE | DELETE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(writer);
    const ZoctlRun first = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(first, 1));  // 3.dmp
    EXPECT_EQ(Numbers(first), "3 1 1 0 1 1 0 0 0 1 0 ");
    EXPECT_EQ(first.json["dumps"][0]["outcome"], "sent");
    EXPECT_EQ(first.json["dumps"][1]["outcome"], "not sent: concerns no target driver");
    EXPECT_EQ(Record(), kBase + 3);
    const ZoctlRun again = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(again, 0));
    EXPECT_EQ(Numbers(again), "0 0 0 0 0 0 0 0 0 0 0 ");
    EXPECT_TRUE(Gave(Crash({"upload", Dump("1.dmp"), "--plain"}), 0, "the server knows this crash"));
    EXPECT_EQ(Record(), kBase + 1);
}

TEST_F(ZoctlCrash, SaysWhatIsWrongInOneSentenceAndItsExitCode) {
    EXPECT_EQ(Crash({"upload", Dump("missing.dmp")}).exitCode, 3);
    EXPECT_EQ(Zoctl("crash upload").exitCode, 2);
    EXPECT_EQ(Zoctl("crash run --max-bytes many").exitCode, 2);
    std::filesystem::create_directories(record_);
    EXPECT_TRUE(Gave(Crash({"list", "--json"}), 1, "record cannot be copied"));
    RemoveRecord();
    Script("DebugCreate fail 0x80004001\n");
    const ZoctlRun engine = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(engine, 1, "0x80004001"));
    EXPECT_EQ(Numbers(engine), "3 0 0 3 0 0 0 0 0 0 0 ");
}

}  // namespace
