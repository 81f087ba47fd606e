// "zoctl crash": what it shows, what it sends and what it does not. A crash server runs meanwhile (with_server.sh).

#include "owned_handles.h"
#include "reporter_fixture.h"
#include "zoctl_process.h"

namespace {

using namespace zotest;

class ZoctlCrash : public ServerTest {
  protected:
    ZoctlCrash() {
        AddDumps({kOurs, kForeign, kNoDump});
        NewCrash();
    }

    std::string Dump(const char* name) { return (dumps_ / name).string(); }

    // "crash COMMAND ..." with this test's folders, record and server where the command takes them and the words do
    // not.
    ZoctlRun Crash(Strings words) {
        const std::string command = words.front();
        const bool sends = command == "run" || command == "upload";
        const auto add = [&words](const char* option, const std::string& value) {
            if (std::find(words.begin(), words.end(), option) == words.end())
                words.insert(words.end(), {option, value});
        };
        if (command == "list" || command == "run") add("--dumps", dumps_.string());
        if (command != "analyse") add("--record", record_.string());
        if (sends) add("--server", Url());
        words.insert(words.begin(), "crash");
        return RunZoctl(words);
    }

    // The document's counters that are not 0.
    static Json Counted(const ZoctlRun& run) {
        Json counted = Json::object();
        for (const auto& [name, number] : run.json.at("counters").items())
            if (number != 0) counted[name] = number;
        return counted;
    }
};

TEST_F(ZoctlCrash, ShowsWithoutSendingOrMovingTheRecord) {
    SetRecord(kBase);
    const ZoctlRun list = Crash({"list", "--json"});
    EXPECT_TRUE(Gave(list, 1));  // one could not be analysed
    EXPECT_EQ(Counted(list), (Json{{"found", 3}, {"notAnalysed", 1}, {"selected", 2}, {"heldBack", 2}}));
    EXPECT_EQ(Each(list, "dumps", "matched"), Json::parse(R"([["ZoProtector"], [], []])"));
    EXPECT_EQ(Each(list, "dumps", "failure"), Json({nullptr, nullptr, "0x80070570"}));
    EXPECT_EQ(list.json["dumps"][0]["signature"].get<std::string>().size(), 32u);
    const ZoctlRun text = Crash({"list", "--target", "STORAGE+0x", "--target", "nt+"});
    EXPECT_TRUE(Gave(text, 1, "STORAGE+0x|nt+"));
    EXPECT_TRUE(Gave(text, 1, "3 new, 1 could not be analysed, 2 matching a target."));
    EXPECT_TRUE(Gave(Crash({"analyse", Dump("1.dmp")}), 0, "\n  <Crash_protocol>"));

    const ZoctlRun dry = Crash({"run", "--dry-run", "--json", "--app-name", "Dry", "--lcid", "7"});
    EXPECT_TRUE(Gave(dry, 1, "", {{"sent", false}, {"server", Url()}}));
    EXPECT_EQ(Counted(dry),
              (Json{{"found", 3}, {"notAnalysed", 1}, {"notSelected", 1}, {"selected", 1}, {"heldBack", 1}}));
    const std::string query = dry.json["dumps"][0]["query"];
    EXPECT_EQ(Field(query, "AppName") + Field(query, "LCID"), "Dry7");
    EXPECT_FALSE(dry.json["dumps"][1].contains("query"));
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_EQ(Record(), kBase);
    EXPECT_TRUE(Gave(Crash({"history"}), 0, "has no entries"));
}

TEST_F(ZoctlCrash, TakesTargetNamesInTheCodePageOfTheEngine) {
    Script("OutputStackTrace say caf\xE9\n");
    const ZoctlRun list = Crash({"list", "--json", "--target", "CAF\xC3\x89"});
    EXPECT_EQ(Each(list, "dumps", "matched"), Json::parse("[[\"CAF\xC3\x89\"], [\"CAF\xC3\x89\"], []]"));

    Configure();
    SetTarget("\xE9");
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
    Json counted = {{"found", 3}, {"notAnalysed", 1}, {"notSelected", 1}, {"selected", 1}};
    counted.update({{"accepted", 1}, {"uploaded", 1}});
    EXPECT_EQ(Counted(first), counted);
    EXPECT_EQ(Each(first, "dumps", "result"), Json({"sent", "notSelected", "notAnalysed"}));
    EXPECT_EQ(first.json["dumps"][1]["outcome"], "not sent: concerns no target driver");
    EXPECT_EQ(Record(), kBase + 3);
    const ZoctlRun again = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(again, 0));
    EXPECT_EQ(Counted(again), Json::object());
    EXPECT_TRUE(Gave(Crash({"upload", Dump("1.dmp"), "--plain"}), 0, "the server knows this crash"));
    EXPECT_EQ(Record(), kBase + 1);
}

// Mistakes that would use dumps up: each is refused before anything is sent or the record is moved. In their words ~ is
// the test's folder.
const Rows<const char*, Strings, int, const char*> kMistakes = {
    {"plain HTTP", "", {"run", "--server", "http://localhost/crash"}, 2, "is not the address of a crash server"},
    {"a server without a host", "", {"upload", "~dumps/1.dmp", "--server", "https:///crash"}, 2, "is not the address"},
    {"no server at the address", "", {"run", "--server", "https://localhost:1/crash"}, 1, "(error 12029)"},
    {"a missing dump folder", "", {"run", "--dumps", "~none"}, 3, "none': The folder does not exist."},
    {"a missing folder to list", "", {"list", "--dumps", "~none"}, 3, "none': The folder does not exist."},
    {"a dump for a folder", "", {"run", "--dumps", "~dumps/1.dmp"}, 2, "is not a folder"},
    {"a folder to upload", "", {"upload", "~dumps"}, 2, "is a folder, not a dump"},
    {"a folder to analyse", "", {"analyse", "~dumps"}, 2, "is a folder, not a dump"},
    {"a dump that is missing", "", {"analyse", "~none.dmp"}, 3, "Could not analyse '"},
    {"a folder for the record", "", {"run", "--record", "~dumps"}, 5, "Could not read the record"},
    {"a folder for the journal", "", {"run", "--journal", "~dumps"}, 5, "Could not write the journal"},
    {"no journal to show", "", {"history", "--journal", "~none"}, 3, "Could not read the journal"},
    {"no engine", "DebugCreate fail 0x80004001", {"run"}, 1, "Could not set up the debugger engine"},
    {"no dump opens", "OpenDumpFile fail 0x80004001", {"run"}, 1, "failed for '1.dmp', '2.dmp', although"},
    {"one dump opens", "[1.dmp]\nReadBugCheckData fail 0x80004001", {"run"}, 1, "failed for '1.dmp', alth"},
    {"a size in words", "", {"run", "--max-bytes", "many"}, 2, "--max-bytes"},
};

TEST_F(ZoctlCrash, RefusesAMistakeBeforeItCostsADump) {
    for (auto [name, script, words, exitCode, message] : kMistakes) {
        SCOPED_TRACE(name);
        SetRecord(kBase);
        Script(script);
        for (std::string& word : words) {
            if (word.starts_with('~')) word = (folder_ / word.substr(1)).string();
        }
        const ZoctlRun run = Crash(words);
        EXPECT_TRUE(Gave(run, exitCode, message));
        EXPECT_EQ(run.err.find("diagnostic log"), std::string::npos) << run.err;
        EXPECT_EQ(Record(), kBase);
    }
    EXPECT_TRUE(NewRequests().empty());
    const Json journal = Each(Crash({"history", "--json"}), "entries", "path");
    EXPECT_EQ(std::count(journal.begin(), journal.end(), Json()), 1)
        << "only the run without an engine has an entry without a dump";
}

TEST_F(ZoctlCrash, RefusesAServerWhoseCertificateIsNotTrusted) {
    ASSERT_EQ(Trust(L"remove", "certificate.der"), 0u);
    EXPECT_TRUE(Gave(Crash({"run", "--json"}), 1, "cannot be used: the certificate", {{"sent", false}}));
    ASSERT_EQ(Trust(L"add", "certificate.der"), 0u);
    EXPECT_EQ(Record(), 0u);
    const ZoctlRun history = Crash({"history", "--json"});
    EXPECT_EQ(Each(history, "entries", "result"), Json({"refused", "notSelected", "notAnalysed"}));
    EXPECT_EQ(Each(history, "entries", "offeredAgain"), Json({true, true, true}));
    EXPECT_GE(history.json["entries"][0]["probe"]["error"], 12000);
}

TEST_F(ZoctlCrash, DoesNotNeedAServerWhenNoDumpWouldBeSent) {
    EXPECT_TRUE(Gave(Crash({"run", "--target", "nobody", "--server", "https://localhost:1/"}), 1, "3 new, 0 selected"));
    EXPECT_EQ(Record(), kBase + 3);
}

TEST_F(ZoctlCrash, DoesNotOfferTheOnlyNewDumpAgain) {
    SetRecord(kBase + 2);
    Crash({"run"});
    EXPECT_EQ(Each(Crash({"history", "--json"}), "entries", "offeredAgain"), Json({false}));
}

TEST_F(ZoctlCrash, PassesDumpsThatTheEngineFailsForWhenAskedTo) {
    Script("[1.dmp]\nOpenDumpFile fail 0x80004001\n");
    EXPECT_FALSE(Crash({"run", "--json"}).json.contains("probe")) << "the server was not asked";
    const ZoctlRun run = Crash({"run", "--json", "--pass-failed", "--all"});
    EXPECT_EQ(Each(run, "dumps", "result"), Json({"notAnalysed", "sent", "notAnalysed"}));
    EXPECT_EQ(Record(), kBase + 3);
}

TEST_F(ZoctlCrash, SaysThatTheEngineIsAtFaultOnlyWhenASoundDumpFailsLikeAllOthers) {
    Script("OpenDumpFile fail 0x80070570\n");  // what the damaged dump gives in any case
    EXPECT_TRUE(Gave(Crash({"list"}), 1, "The debugger engine is at fault: it failed for every dump with ERROR_FILE"));
    for (const char* sound : {"1.dmp", "2.dmp"})
        std::filesystem::remove(dumps_ / sound);
    const ZoctlRun list = Crash({"list"});
    EXPECT_TRUE(Gave(list, 1, "could not be analysed, ERROR_FILE_CORRUPT (0x80070570)"));
    EXPECT_EQ((list.out + list.err).find("at fault"), std::string::npos);
}

TEST_F(ZoctlCrash, KeepsAJournalOfEachDumpsOutcome) {
    const ZoctlRun run = Crash({"run", "--json"});
    const ZoctlRun history = Crash({"history", "--json"});
    EXPECT_EQ(Each(history, "entries", "result"), Json({"sent", "notSelected", "notAnalysed"}));
    EXPECT_EQ(Each(history, "entries", "sent"), Json({true, false, false}));
    EXPECT_EQ(Each(history, "entries", "offeredAgain"), Json({false, false, false}));
    const Json first = history.json["entries"][0];
    EXPECT_EQ(first["bugCheck"]["code"], "0x0000001E");
    EXPECT_EQ(first["bugCheck"]["parameters"][3], "0x0000000000000028");
    EXPECT_EQ(first["signature"], Field(NewRequests()[0].document, "CrashSignature"));
    EXPECT_EQ(first["server"], Url());
    EXPECT_EQ(history.json["entries"][1]["signature"].get<std::string>().size(), 32u);
    EXPECT_EQ(run.json["journal"], history.json["journal"]);
    EXPECT_FALSE(run.json.contains("journalError"));

    EXPECT_TRUE(Gave(Crash({"history", "--dump", "2.DMP"}), 0, "0x000000D1  -"));
    EXPECT_TRUE(Gave(Crash({"history", "--dump", "9.dmp"}), 7, "has no entry for '9.dmp'"));
    EXPECT_EQ(Each(Crash({"history", "--last", "1", "--json"}), "entries", "path"), Json::array({Dump("3.dmp")}));
}

TEST_F(ZoctlCrash, ShowsAJournalThatSomebodyDamaged) {
    const std::string journal = (folder_ / "journal").string();
    zotest::WriteFileBytes(journal, "{\"path\":7,\"matched\":[1],\"bugCheck\":4,\"outcome\":\"a\\u001b\"}\n[]\n{\n");
    const ZoctlRun history = Crash({"history", "--journal", journal});
    EXPECT_TRUE(Gave(history, 0, "-     -     -          ?        a\\x1B"));
    EXPECT_TRUE(Gave(history, 0, "left out: 2."));
    EXPECT_EQ(history.out.find("has no entries"), std::string::npos);
}

TEST_F(ZoctlCrash, DoesNotClaimToHaveSentADumpWhenTheCountersLeaveItOpen) {
    EXPECT_TRUE(Gave(Crash({"upload", Dump("1.dmp")}), 0));
    std::filesystem::remove(dumps_ / "3.dmp");
    RemoveRecord();
    const ZoctlRun run = Crash({"run", "--all", "--json"});
    EXPECT_EQ(Each(run, "dumps", "result"), Json({"undetermined", "undetermined"}));
    EXPECT_EQ(Each(run, "dumps", "sent"), Json({false, false}));
    EXPECT_TRUE(Gave(run, 0, "of 2 selected dumps, 1 sent, 1 known to the server", {{"sent", true}}));
    RemoveRecord();
    EXPECT_TRUE(Gave(Crash({"run", "--json"}), 0, "", {{"sent", false}}));  // the server knows it
}

}  // namespace
