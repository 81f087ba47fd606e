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
                words.insert(words.begin() + 1, {option, value});
        };
        if (command == "list" || command == "run") add("--dumps", dumps_.string());
        if (command != "analyse") add("--record", record_.string());
        if (sends) add("--server", Url());
        words.insert(words.begin(), "crash");
        return RunZoctl(words);
    }

    std::filesystem::path Journal() { return record_.parent_path() / "crash_journal.jsonl"; }

    // As a program has it that still writes the file.
    static zo::OwnedFile Writing(const std::filesystem::path& file) {
        return zo::OwnedFile(CreateFileW(file.c_str(), GENERIC_WRITE | DELETE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                                         0, nullptr));
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
    const ZoctlRun text = Crash({"list", "--target", "STORAGE+0x", "--target", "nt+"});
    EXPECT_TRUE(Gave(text, 1, "STORAGE+0x|nt+"));
    EXPECT_TRUE(Gave(text, 1,
                     "ERROR_FILE_CORRUPT (0x80070570)\n3 new, 1 could not be analysed, 2 matching a target. "
                     "Nothing was sent and the record was not changed.\n"));
    EXPECT_EQ(text.err, "");
    Strings dryRun = {"run", "--dry-run", "--app-name", "Dry", "--app-version", "8", "--lcid", "7"};
    EXPECT_TRUE(Gave(Crash(dryRun), 1,
                     "\n\nQuery for 1.dmp, to " + Url() +
                         ":\n  <Crash_protocol>\n  <AppName>Dry</AppName>\n  <AppVer>8</AppVer>\n"));
    dryRun.push_back("--json");
    const ZoctlRun dry = Crash(dryRun);
    EXPECT_TRUE(Gave(dry, 1, "", {{"sent", false}, {"server", Url()}}));
    EXPECT_EQ(Each(dry, "dumps", "offeredAgain"), Json({true, true, true}));
    EXPECT_EQ(Counted(dry),
              (Json{{"found", 3}, {"notAnalysed", 1}, {"notSelected", 1}, {"selected", 1}, {"heldBack", 1}}));
    EXPECT_EQ(Field(dry.json["dumps"][0]["query"], "LCID"), "7");
    EXPECT_FALSE(dry.json["dumps"][1].contains("query"));
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_EQ(Record(), kBase);
    EXPECT_TRUE(Gave(Crash({"history"}), 0, "has no entries"));
    EXPECT_TRUE(Gave(Crash({"history", "--record", (folder_ / "none" / "record").string()}), 0, "has no entries"));
}

TEST_F(ZoctlCrash, UsesATemporaryCopyOfTheRecordAndRemovesIt) {
    const ScopedTmp tmp(dumps_.wstring());
    EXPECT_TRUE(Gave(Crash({"analyse", Dump("1.dmp")}), 0, "\n  <Crash_protocol>"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dumps_), {}), 3);
    const ScopedTmp none((folder_ / "none").wstring());
    EXPECT_TRUE(Gave(Crash({"list"}), 1, "no temporary file can be made"));
    EXPECT_TRUE(Gave(Crash({"run"}), 1, "no temporary file can be made"));
    EXPECT_TRUE(NewRequests().empty());
}

TEST_F(ZoctlCrash, TakesTargetNamesInTheCodePageOfTheEngine) {
    Script("OutputStackTrace say caf\xE9\n");
    const ZoctlRun run = Crash({"run", "--json", "--target", "CAF\xC3\x89"});
    EXPECT_EQ(Each(run, "dumps", "matched"), Json::parse("[[\"CAF\xC3\x89\"], [\"CAF\xC3\x89\"], []]"));
    EXPECT_NE(ReadFileBytes(Journal()).find("[\"CAF\xC3\x89\"]"), std::string::npos) << "people read the journal";
    RemoveRecord();

    Configure();
    SetTarget("\xE9");
    Run();
    EXPECT_STREQ(stats_.matchedDrivers, L"\xE9;\xE9");
}

TEST_F(ZoctlCrash, SendsEachDumpOnceAndTellsWhatBecameOfIt) {
    std::filesystem::create_directory(record_.parent_path());
    const zo::OwnedFile dump = Writing(dumps_ / "1.dmp");
    const zo::OwnedFile journal = Writing(Journal());
    ASSERT_TRUE(dump && journal);
    const ZoctlRun first = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(first, 1));  // 3.dmp
    Json counted = {{"found", 3}, {"notAnalysed", 1}, {"notSelected", 1}, {"selected", 1}};
    counted.update({{"accepted", 1}, {"uploaded", 1}});
    EXPECT_EQ(Counted(first), counted);
    EXPECT_EQ(Each(first, "dumps", "result"), Json({"sent", "notSelected", "notAnalysed"}));
    EXPECT_EQ(first.json["dumps"][1]["outcome"], "not sent: concerns no target driver");
    EXPECT_EQ(Record(), kBase + 3);
    const ZoctlRun again = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(again, 0, "", {{"journal", nullptr}}));
    EXPECT_EQ(Counted(again), Json::object());
    EXPECT_EQ(NewRequests()[0].body.find("<AppName>"), std::string::npos);
    EXPECT_TRUE(Gave(Crash({"upload", Dump("1.dmp"), "--plain"}), 0, "the server knows this crash"));
    EXPECT_NE(NewRequests()[0].body.find("<AppName>"), std::string::npos);
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
    {"a word too many", "", {"list", "--target", "nt", "STORAGE"}, 2, "STORAGE"},
    {"no dump", "", {"analyse"}, 2, "file is required"},
    {"a dump like an option", "", {"upload", "--", "-none.dmp"}, 3, "Could not report '-none.dmp'"},
    {"no engine to list with", "DebugCreate fail 0x80004001", {"list"}, 1, "DbgEng load failed: 0x80004001"},
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
    const zo::OwnedFile writer = Writing(record_);
    EXPECT_TRUE(Gave(Crash({"list"}), 1, "Could not read the record"));
    EXPECT_TRUE(NewRequests().empty());
    Json probes;
    Json withoutDump;
    const ZoctlRun history = Crash({"history", "--json"});
    for (const Json& entry : history.json["entries"]) {
        if (entry.contains("probe")) probes.push_back(entry["path"]);
        if (entry["path"] == nullptr) withoutDump.push_back({entry["sent"], entry["offeredAgain"]});
    }
    EXPECT_EQ(probes, Json::array({Dump("1.dmp")})) << "which waited for the server";
    EXPECT_EQ(withoutDump, Json::parse("[[false, true]]")) << "of the run without an engine";
}

TEST_F(ZoctlCrash, RefusesAServerWhoseCertificateIsNotTrusted) {
    ASSERT_EQ(Trust(L"remove", "certificate.der"), 0u);
    EXPECT_TRUE(Gave(Crash({"run", "--json"}), 1, "cannot be used: the certificate", {{"sent", false}}));
    ASSERT_EQ(Trust(L"add", "certificate.der"), 0u);
    EXPECT_EQ(Record(), 0u);
    const ZoctlRun history = Crash({"history", "--json"});
    EXPECT_EQ(Each(history, "entries", "result"), Json({"refused", "notSelected", "notAnalysed"}));
    EXPECT_EQ(Each(history, "entries", "offeredAgain"), Json({true, true, true}));
    EXPECT_EQ(Each(history, "entries", "bugCheck"), Each(Crash({"list", "--json"}), "dumps", "bugCheck"));
    EXPECT_GE(history.json["entries"][0]["probe"]["error"], 12000);
}

TEST_F(ZoctlCrash, DoesNotNeedAServerWhenNoDumpWouldBeSent) {
    EXPECT_TRUE(Gave(Crash({"run", "--target", "nobody", "--server", "https://localhost:1/"}), 1, "3 new, 0 selected"));
    EXPECT_EQ(Record(), kBase + 3);
}

TEST_F(ZoctlCrash, LeavesLargerDumpsThanAllowedOutOfItsTrial) {
    EXPECT_EQ(Each(Crash({"run", "--max-bytes", "1", "--json"}), "dumps", "path"), Json::array({Dump("3.dmp")}));
}

TEST_F(ZoctlCrash, DoesNotOfferTheOnlyNewDumpAgain) {
    SetRecord(kBase + 2);
    Crash({"run"});
    EXPECT_EQ(Each(Crash({"history", "--json"}), "entries", "offeredAgain"), Json({false}));
}

TEST_F(ZoctlCrash, OffersADumpAgainThatVanishesBetweenTrialAndRun) {
    SetRecord(kBase + 1);
    Script("[2.dmp]\nEndSession delete\n");
    std::filesystem::remove(dumps_ / "3.dmp");
    EXPECT_EQ(Each(Crash({"run", "--json"}), "dumps", "offeredAgain"), Json({true}));
}

TEST_F(ZoctlCrash, CountsFailedQueriesAndUploadsApart) {
    for (const auto& [conditions, result, counts] : {std::tuple{"garbage\n", "queryFailed", "queries 1, uploads 0."},
                                                     {"normal\ngarbage\n", "uploadFailed", "queries 0, uploads 1."}}) {
        RemoveRecord();
        Conditions(conditions);
        const ZoctlRun run = Crash({"run", "--json"});
        EXPECT_TRUE(Gave(run, 1, std::string("3 new, 1 selected; 0 sent, 0 known to the server; failed: ") + counts));
        EXPECT_EQ(run.json["dumps"][0]["result"], result);
        EXPECT_EQ(run.json["dumps"][0]["offeredAgain"], false);
    }
}

TEST_F(ZoctlCrash, SendsWithoutAJournalThatCannotBeWritten) {
    const auto check = [this](const Strings& words, const std::string& hint) {
        ZoctlRun run = Crash(words);
        EXPECT_TRUE(Gave(run, 0, hint + run.json["journalError"].get<std::string>(), {{"journal", nullptr}}));
    };
    check({"upload", Dump("1.dmp"), "--json", "--journal", "Z:\\dev\\full"}, "The journal could not be written: ");
    std::filesystem::create_directories(Journal());
    check({"upload", Dump("1.dmp"), "--json"}, "The journal cannot be written: ");
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
    EXPECT_TRUE(first["time"].get<std::string>().starts_with("20"));
    const std::string document = NewRequests()[0].document;
    EXPECT_EQ(first["signature"], Field(document, "CrashSignature"));
    EXPECT_EQ(first["address"], Field(document, "ErrAddr"));
    EXPECT_EQ(Field(document, "LCID"), "2502");
    EXPECT_EQ(first["server"], Url());
    EXPECT_EQ(history.json["entries"][1]["signature"].get<std::string>().size(), 32u);
    EXPECT_EQ(run.json["journal"], history.json["journal"]);
    EXPECT_FALSE(run.json.contains("journalError"));

    const ZoctlRun second = Crash({"history", "--dump", "2.DMP"});
    EXPECT_TRUE(Gave(second, 0, "0x000000D1  -"));
    EXPECT_EQ(second.err, "");
    EXPECT_TRUE(Gave(Crash({"history", "--dump", "9.dmp"}), 7, "has no entry for '9.dmp'"));
    EXPECT_EQ(Each(Crash({"history", "--last", "1", "--json"}), "entries", "path"), Json::array({Dump("3.dmp")}));
}

TEST_F(ZoctlCrash, ShowsAJournalThatSomebodyDamaged) {
    const std::string journal = (folder_ / "journal").string();
    zotest::WriteFileBytes(journal,
                           "{\"path\":7,\"matched\":[1],\"bugCheck\":4,\"outcome\":\"a\\u001b\"}\n[]\n{}\n{\n");
    const ZoctlRun history = Crash({"history", "--journal", journal});
    EXPECT_TRUE(Gave(history, 0, "left out: 2."));
    EXPECT_EQ(history.out,
              "TIME  DUMP  BUG CHECK  MATCHED  OUTCOME\n"
              "-     -     -          ?        a\\x1B\n"
              "-     -     -          -        -\n");
}

TEST_F(ZoctlCrash, DoesNotClaimToHaveSentADumpWhenTheCountersLeaveItOpen) {
    EXPECT_TRUE(Gave(Crash({"upload", Dump("1.dmp")}), 0));
    std::filesystem::remove(dumps_ / "3.dmp");
    RemoveRecord();
    const ZoctlRun run = Crash({"run", "--all", "--json"});
    EXPECT_EQ(Each(run, "dumps", "result"), Json({"undetermined", "undetermined"}));
    EXPECT_EQ(Each(run, "dumps", "sent"), Json({false, false}));
    EXPECT_EQ(Each(run, "dumps", "offeredAgain"), Json({false, false}));
    EXPECT_TRUE(Gave(run, 0, "of 2 selected dumps, 1 sent, 1 known to the server", {{"sent", true}}));
    RemoveRecord();
    const ZoctlRun known = Crash({"run", "--json"});
    EXPECT_TRUE(Gave(known, 0, "", {{"sent", false}}));
    EXPECT_EQ(known.json["dumps"][0]["result"], "known");
    EXPECT_EQ(known.json["dumps"][0]["offeredAgain"], false);
}

}  // namespace
