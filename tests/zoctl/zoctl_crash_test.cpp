// "zoctl crash": what it shows, what it sends and what it does not. A crash server runs beside it (with_server.sh).

#include <nlohmann/json.hpp>

#include "child_process.h"
#include "format.h"
#include "reporter_fixture.h"
#include "text.h"

namespace {

using Json = nlohmann::json;

struct ZoctlRun {
    int exitCode;
    std::string out;
    std::string err;
    Json json;  // of standard output; discarded when that is not one JSON document
};

ZoctlRun RunZoctl(const std::vector<std::string>& words) {
    std::vector<std::wstring> arguments;
    for (const std::string& word : words)
        arguments.push_back(zo::WideFromUtf8(word));
    const auto result = zotest::RunChild((zotest::ProgramFolder() / "zoctl.exe").wstring(), arguments);
    return {static_cast<int>(result.exitCode), result.out, result.err, Json::parse(result.out, nullptr, false)};
}

constexpr std::uint64_t kBase = 133500000000000000;

class ZoctlCrash : public zocrashtest::ReporterTest {
  protected:
    static void SetUpTestSuite() { Trust(L"add"); }
    static void TearDownTestSuite() { Trust(L"remove"); }

    ZoctlCrash() {
        AddDump("1.dmp", zocrashtest::kOurs, kBase + 1);
        AddDump("2.dmp", zocrashtest::kForeign, kBase + 2);
        AddDump("3.dmp", zocrashtest::kNoDump, kBase + 3);
        Script(zo::Format("OutputStackTrace say run {}\n", GetTickCount64()));
    }

    static std::string Environment(const char* name) {
        char value[1024] = "";
        GetEnvironmentVariableA(name, value, sizeof(value));
        return value;
    }
    static std::filesystem::path ServerFolder() { return "Z:" + Environment("ZO_CRASH_SERVER_FOLDER"); }
    static void Trust(const wchar_t* verb) {
        const auto result = zotest::RunChild((zotest::ProgramFolder() / "trust_certificate.exe").wstring(),
                                             {verb, (ServerFolder() / "certificate.der").wstring()});
        ASSERT_EQ(result.exitCode, 0u) << result.err;
    }
    static std::size_t Posts() {
        std::size_t count = 0;
        while (std::filesystem::exists(ServerFolder() / "requests" / zo::Format("{:04}.head", count + 1)))
            ++count;
        return count;
    }

    // "crash COMMAND ..." with this test's folders, record and server where the command takes them.
    ZoctlRun Crash(std::vector<std::string> words) {
        const std::string command = words.front();
        words.insert(words.begin(), "crash");
        if (command == "list" || command == "run") words.insert(words.end(), {"--dumps", dumps_.string()});
        if (command != "analyse") words.insert(words.end(), {"--record", record_.string()});
        if (command == "run" || command == "upload") {
            words.insert(words.end(), {"--server", Environment("ZO_CRASH_SERVER_URL")});
        }
        return RunZoctl(words);
    }

    // The document's counters in their order.
    static std::string Numbers(const Json& document) {
        std::string numbers;
        for (const char* name : {"found", "notAnalysed", "notSelected", "notReached", "selected", "accepted",
                                 "alreadyKnown", "queriesFailed", "uploaded", "uploadsFailed"}) {
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
    EXPECT_EQ(Numbers(list.json), "3 1 0 0 2 0 0 2 0 0 ");
    ASSERT_EQ(list.json["dumps"].size(), 3u);
    EXPECT_EQ(list.json["dumps"][0]["matched"], Json::array({"ZoProtector"}));
    EXPECT_EQ(list.json["dumps"][0]["signature"].get<std::string>().size(), 32u);
    EXPECT_EQ(list.json["dumps"][1]["matched"], Json::array());
    EXPECT_EQ(list.json["dumps"][2]["failure"], "0x80070570");
    const ZoctlRun text = Crash({"list", "--target", "STORAGE+0x", "--target", "nt+"});
    EXPECT_NE(text.out.find("STORAGE+0x|nt+"), std::string::npos) << text.out;

    const ZoctlRun one = Crash({"analyse", (dumps_ / "1.dmp").string()});
    EXPECT_EQ(one.exitCode, 0) << one.err;
    EXPECT_NE(one.out.find("<Cmd>1</Cmd>"), std::string::npos) << one.out;

    const ZoctlRun dry = Crash({"run", "--dry-run", "--json", "--app-name", "Dry", "--lcid", "7"});
    EXPECT_EQ(Numbers(dry.json), "3 1 1 0 1 0 0 1 0 0 ");
    EXPECT_EQ(dry.json["sent"], false);
    EXPECT_EQ(dry.json["server"], Environment("ZO_CRASH_SERVER_URL"));
    const std::string query = dry.json["dumps"][0]["query"];
    EXPECT_EQ(zocrashtest::Field(query, "AppName"), "Dry");
    EXPECT_EQ(zocrashtest::Field(query, "LCID"), "7");
    EXPECT_FALSE(dry.json["dumps"][1].contains("query"));

    EXPECT_EQ(Posts(), before);
    EXPECT_EQ(Record(), kBase);
}

TEST_F(ZoctlCrash, SendsEachDumpOnceAndTellsWhatBecameOfIt) {
    const ZoctlRun first = Crash({"run", "--json"});
    EXPECT_EQ(first.exitCode, 1);  // 3.dmp
    EXPECT_EQ(Numbers(first.json), "3 1 1 0 1 1 0 0 1 0 ");
    EXPECT_EQ(first.json["dumps"][0]["outcome"], "sent");
    EXPECT_EQ(first.json["dumps"][1]["outcome"], "not sent: concerns no target driver");
    EXPECT_EQ(Record(), kBase + 3);
    const ZoctlRun again = Crash({"run", "--json"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(Numbers(again.json), "0 0 0 0 0 0 0 0 0 0 ");

    const ZoctlRun single = Crash({"upload", (dumps_ / "1.dmp").string(), "--plain"});
    EXPECT_EQ(single.exitCode, 0) << single.err;
    EXPECT_NE(single.out.find("the server knows this crash"), std::string::npos) << single.out;
    EXPECT_EQ(Record(), kBase + 1);
}

TEST_F(ZoctlCrash, SaysWhatIsWrongInOneSentenceAndItsExitCode) {
    EXPECT_EQ(Crash({"upload", (dumps_ / "missing.dmp").string()}).exitCode, 3);
    EXPECT_EQ(RunZoctl({"crash", "upload"}).exitCode, 2);
    EXPECT_EQ(RunZoctl({"crash", "run", "--max-bytes", "many"}).exitCode, 2);
    Script("DebugCreate fail 0x80004001\n");
    const ZoctlRun engine = Crash({"run", "--json"});
    EXPECT_EQ(engine.exitCode, 1);
    EXPECT_EQ(engine.json["status"]["value"], "0x80004001");
    EXPECT_EQ(Numbers(engine.json), "3 0 0 3 0 0 0 0 0 0 ");
}

}  // namespace
