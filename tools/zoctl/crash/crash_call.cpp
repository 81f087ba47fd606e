#include "crash_call.h"

#include <algorithm>

#include "crash_checks.h"
#include "error_text.h"
#include "errors.h"
#include "format.h"
#include "server_probe.h"
#include "text.h"

namespace zoctl {

namespace {

std::string MatchedCell(const CrashDumpLine& dump) {
    std::string matched;
    for (const std::string& name : dump.matched)
        matched += (matched.empty() ? "" : "|") + name;
    return matched.empty() ? "-" : matched;
}

void ShowDumps(const CrashCall& call, const CrashResult& result, const Refusal* refusal) {
    if (result.dumps.empty()) return;
    const bool show = call.mode == CrashMode::kShow;
    TextTable table(show ? std::vector<std::string>{"DUMP", "BUG CHECK", "MATCHED", "SIGNATURE", "ADDRESS"}
                         : std::vector<std::string>{"DUMP", "BUG CHECK", "MATCHED", "OUTCOME"});
    for (const CrashDumpLine& dump : result.dumps) {
        const std::string bugCheck = dump.header.bugCheck ? zo::Format("0x{:X}", dump.header.bugCheck->code) : "-";
        if (!show) {
            table.Add({FileName(dump.path), bugCheck, MatchedCell(dump),
                       OutcomeOf(dump, result, call.mode, refusal).sentence});
        } else if (dump.failure != 0) {
            table.Add({FileName(dump.path), bugCheck, "-", "could not be analysed, " + StatusLabel(dump.failure), ""});
        } else {
            table.Add({FileName(dump.path), bugCheck, MatchedCell(dump), dump.signature, dump.address});
        }
    }
    call.out.Table(table);
}

// The documents in full, line by line, as they would go into the scrambler.
void ShowQueries(const CrashCall& call, const CrashResult& result) {
    const std::string server = CrashServer(call.options);
    for (const CrashDumpLine& dump : result.dumps) {
        if (dump.document.empty()) continue;
        call.out.Text(
            zo::Format("\nQuery for {}, to {}:\n", EscapeControls(FileName(dump.path)), EscapeControls(server)));
        std::size_t at = 0;
        for (std::size_t end; (end = dump.document.find("\r\n", at)) != std::string::npos; at = end + 2) {
            call.out.Text("  " + EscapeControls(dump.document.substr(at, end - at)) + "\n");
        }
    }
}

std::string Summary(const Tally& tally, CrashMode mode) {
    if (mode != CrashMode::kSend) {
        const std::string chosen = mode == CrashMode::kShow
                                       ? zo::Format("{} matching a target", tally.matched)
                                       : zo::Format("{} to be asked about", tally.stats.dumpsSelected);
        return zo::Format("{} new, {} could not be analysed, {}. Nothing was sent and the record was not changed.",
                          tally.stats.dumpsFound, tally.notAnalysed, chosen);
    }
    return zo::Format("{} new, {} selected; {} sent, {} known to the server; failed: queries {}, uploads {}.",
                      tally.stats.dumpsFound, tally.stats.dumpsSelected, tally.stats.uploadsSucceeded,
                      tally.stats.queriesAlreadyKnown, tally.queriesFailed, tally.stats.uploadsFailed);
}

const char* AfterCancel(const CrashResult& result, const Tally& tally, CrashMode mode) {
    if (mode != CrashMode::kSend || !MovedRecord(result)) return "The record was not changed; run it again.";
    if (tally.notReached == 0) return "Every dump was processed.";
    return "Dumps that were not reached are not offered again; send one with \"zoctl crash upload\".";
}

// An entry of the journal for each dump, and one without a dump when the engine never got to the dumps.
std::vector<Json> JournalEntriesOf(const CrashCall& call, const CrashResult& result, const Refusal* refusal) {
    const Json head = {{"time", JournalTime()}, {"command", call.out.Command()}, {"server", CrashServer(call.options)}};
    std::vector<Json> entries;
    for (const CrashDumpLine& dump : result.dumps) {
        Json entry = head;
        entry.update(DumpJson(dump, OutcomeOf(dump, result, call.mode, refusal)));
        if (refusal != nullptr && refusal->probeError != 0 && dump.selected) {
            entry["probe"] = {{"error", refusal->probeError}, {"text", ServerErrorText(refusal->probeError)}};
        }
        entries.push_back(std::move(entry));
    }
    if (entries.empty() && refusal != nullptr) {
        Json entry = head;
        entry.update({{"path", nullptr},
                      {"result", refusal->result},
                      {"outcome", "not sent: " + refusal->reason},
                      {"sent", false},
                      {"offeredAgain", true}});
        entries.push_back(std::move(entry));
    }
    return entries;
}

// The members "journal" and "journalError".
void AddToJournal(const CrashCall& call, const CrashResult& result, const Refusal* refusal, Json& facts) {
    if (call.mode != CrashMode::kSend) return;
    std::string error = call.journalError;
    if (call.journal != nullptr) {
        const std::uint32_t failed = call.journal->Add(JournalEntriesOf(call, result, refusal));
        if (failed != ERROR_SUCCESS) {
            error = zo::ErrorText(failed);
            call.out.Hint("The journal could not be written: " + error);
        }
    }
    facts["journal"] = nullptr;
    if (call.journal != nullptr && error.empty()) facts["journal"] = zo::Utf8FromWide(call.journal->Path().wstring());
    if (!error.empty()) facts["journalError"] = error;
}

Json ShowAndRecord(const CrashCall& call, const CrashResult& result, const Tally& tally, const Refusal* refusal) {
    Json facts = {{"server", CrashServer(call.options)},
                  {"sent", result.stats.uploadsSucceeded > 0},
                  {"dumps", Json::array()},
                  {"counters", tally.ToJson()},
                  {"messages", Json::array()}};
    for (const CrashDumpLine& dump : result.dumps) {
        Json entry = DumpJson(dump, OutcomeOf(dump, result, call.mode, refusal));
        if (call.mode == CrashMode::kDryRun && !dump.document.empty()) entry["query"] = dump.document;
        facts["dumps"].push_back(std::move(entry));
    }
    for (const CrashMessage& message : result.messages)
        facts["messages"].push_back({{"level", message.level}, {"text", message.text}});
    ShowDumps(call, result, refusal);
    AddToJournal(call, result, refusal, facts);
    return facts;
}

}  // namespace

int FinishCall(const CrashCall& call, const CrashResult& result) {
    const Tally tally(result);
    const Json facts = ShowAndRecord(call, result, tally, nullptr);
    if (call.mode == CrashMode::kDryRun || (call.mode == CrashMode::kShow && !call.options.file.empty())) {
        ShowQueries(call, result);
    }
    std::string sentence = Summary(tally, call.mode);
    if (result.cancelled) {
        return call.out.Refuse(kExitCancelled, "Cancelled. " + sentence, AfterCancel(result, tally, call.mode), facts);
    }
    if (result.status < 0) {
        const CrashFailure failure = DescribeCrashFailure(result, call.options, call.mode);
        return call.out.Fail(result.status, failure.subject, failure.what, facts);
    }
    if (tally.notAnalysed + tally.queriesFailed + tally.stats.uploadsFailed == 0) return call.out.Done(sentence, facts);
    if (!EngineIsAtFault(result)) return call.out.Found(kExitFailed, sentence, facts);
    const std::int32_t status = result.dumps.front().failure;
    sentence += zo::Format(" The debugger engine is at fault: it failed for every dump with {}", StatusInWords(status));
    return call.out.Found(kExitFailed, sentence, facts, FullStatusText(status, Subject::kEngine).advice);
}

int RefuseCall(const CrashCall& call, const CrashResult& trial, const Refusal& refusal, const RefusalText& text) {
    Json facts = ShowAndRecord(call, trial, Tally(trial), &refusal);
    if (refusal.probeError != 0) {
        facts["probe"] = {{"error", refusal.probeError}, {"text", ServerErrorText(refusal.probeError)}};
    }
    return call.out.Refuse(text.exitCode, text.message, text.advice, facts);
}

}  // namespace zoctl
