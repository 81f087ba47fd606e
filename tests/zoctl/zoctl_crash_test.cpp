// "zoctl crash": what it shows, what it sends and what it does not. A crash server runs beside it (with_server.sh).

#include "format.h"
#include "owned_handles.h"
#include "reporter_fixture.h"
#include "zoctl_process.h"

namespace {

using namespace zocrashtest;
using zotest::Json;
using zotest::ZoctlRun;

class ZoctlCrash : public ServerTest {
  protected:
    ZoctlCrash() {
        AddDump("1.dmp", kOurs, kBase + 1);
        AddDump("2.dmp", kForeign, kBase + 2);
        AddDump("3.dmp", kNoDump, kBase + 3);
        NewCrash();
    }

    // "crash COMMAND ..." with this test's folders, record and server where the command takes them.
    ZoctlRun Crash(Strings words) {
        const std::string command = words.front();
        words.insert(words.begin(), "crash");
        if (command == "list" || command == "run") words.insert(words.end(), {"--dumps", dumps_.string()});
        if (command != "analyse") words.insert(words.end(), {"--record", record_.string()});
        if (command == "run" || command == "upload") words.insert(words.end(), {"--server", Url()});
        return zotest::RunZoctl(words);
    }

    // The document's counters in their order.
    static std::string Numbers(const Json& document) {
        std::string numbers;
        for (const char* name : {"found", "notAnalysed", "notSelected", "notReached", "selected", "accepted",
                                 "alreadyKnown", "queriesFailed", "heldBack", "uploaded", "uploadsFailed"}) {
            numbers += std::to_string(document["counters"][name].get<int>()) + " ";
        }
        return numbers;
    }
};

TEST_F(ZoctlCrash, ShowsWithoutSendingOrMovingTheRecord) {
    SetRecord(kBase);
    const std::size_t before = Posts();
    const ZoctlRun list = Crash({"list", "--json"});
    EXPECT_EQ(list.exitCode, 1);  // one could not be analysed
    EXPECT_EQ(Numbers(list.json), "3 1 0 0 2 0 0 0 2 0 0 ");
    ASSERT_EQ(list.json["dumps"].size(), 3u);
    EXPECT_EQ(list.json["dumps"][0]["matched"], Json::array({"ZoProtector"}));
    EXPECT_EQ(list.json["dumps"][0]["signature"].get<std::string>().size(), 32u);
    EXPECT_EQ(list.json["dumps"][1]["matched"], Json::array());
    EXPECT_EQ(list.json["dumps"][2]["failure"], "0x80070570");
    const ZoctlRun text = Crash({"list", "--target", "STORAGE+0x", "--target", "nt+"});
    EXPECT_NE(text.out.find("STORAGE+0x|nt+"), std::string::npos) << text.out;
    EXPECT_NE((text.out + text.err).find("3 new, 1 could not be analysed, 2 match a target."), std::string::npos);

    const ZoctlRun one = Crash({"analyse", (dumps_ / "1.dmp").string()});
    EXPECT_EQ(one.exitCode, 0) << one.err;
    EXPECT_NE(one.out.find("<Cmd>1</Cmd>"), std::string::npos) << one.out;

    const ZoctlRun dry = Crash({"run", "--dry-run", "--json", "--app-name", "Dry", "--lcid", "7"});
    EXPECT_EQ(Numbers(dry.json), "3 1 1 0 1 0 0 0 1 0 0 ");
    EXPECT_EQ(dry.json["sent"], false);
    EXPECT_EQ(dry.json["server"], Url());
    const std::string query = dry.json["dumps"][0]["query"];
    EXPECT_EQ(Field(query, "AppName"), "Dry");
    EXPECT_EQ(Field(query, "LCID"), "7");
    EXPECT_FALSE(dry.json["dumps"][1].contains("query"));

    EXPECT_EQ(Posts(), before);
    EXPECT_EQ(Record(), kBase);
}

TEST_F(ZoctlCrash, TakesTargetNamesInTheCodePageOfTheEngine) {
    Script("OutputStackTrace say caf\xE9\n");
    const ZoctlRun list = Crash({"list", "--json", "--target", "CAF\xC3\x89"});
    ASSERT_EQ(list.json["dumps"].size(), 3u) << list.err;
    EXPECT_EQ(list.json["dumps"][0]["matched"], Json::array({"CAF\xC3\x89"}));

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
    EXPECT_EQ(first.exitCode, 1);  // 3.dmp
    EXPECT_EQ(Numbers(first.json), "3 1 1 0 1 1 0 0 0 1 0 ");
    EXPECT_EQ(first.json["dumps"][0]["outcome"], "sent");
    EXPECT_EQ(first.json["dumps"][1]["outcome"], "not sent: concerns no target driver");
    EXPECT_EQ(Record(), kBase + 3);
    const ZoctlRun again = Crash({"run", "--json"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(Numbers(again.json), "0 0 0 0 0 0 0 0 0 0 0 ");

    const ZoctlRun single = Crash({"upload", (dumps_ / "1.dmp").string(), "--plain"});
    EXPECT_EQ(single.exitCode, 0) << single.err;
    EXPECT_NE(single.out.find("the server knows this crash"), std::string::npos) << single.out;
    EXPECT_EQ(Record(), kBase + 1);
}

TEST_F(ZoctlCrash, SaysWhatIsWrongInOneSentenceAndItsExitCode) {
    EXPECT_EQ(Crash({"upload", (dumps_ / "missing.dmp").string()}).exitCode, 3);
    EXPECT_EQ(zotest::RunZoctl({"crash", "upload"}).exitCode, 2);
    EXPECT_EQ(zotest::RunZoctl({"crash", "run", "--max-bytes", "many"}).exitCode, 2);
    std::filesystem::create_directories(record_);
    const ZoctlRun folder = Crash({"list", "--json"});
    EXPECT_EQ(folder.exitCode, 1);
    EXPECT_NE(folder.err.find("record cannot be copied"), std::string::npos) << folder.err;
    RemoveRecord();
    Script("DebugCreate fail 0x80004001\n");
    const ZoctlRun engine = Crash({"run", "--json"});
    EXPECT_EQ(engine.exitCode, 1);
    EXPECT_EQ(engine.json["status"]["value"], "0x80004001");
    EXPECT_EQ(Numbers(engine.json), "3 0 0 3 0 0 0 0 0 0 0 ");
}

}  // namespace
