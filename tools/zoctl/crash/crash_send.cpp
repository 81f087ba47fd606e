#include "crash_send.h"

#include <windows.h>

#include <algorithm>
#include <optional>

#include "console.h"
#include "crash_call.h"
#include "crash_checks.h"
#include "crash_files.h"
#include "crash_trial.h"
#include "error_text.h"
#include "errors.h"
#include "format.h"
#include "server_probe.h"
#include "text.h"

namespace zoctl {

namespace {

constexpr unsigned kProbeMs = 20'000;
constexpr char kNothingLost[] = " Nothing was sent, and the dumps will be offered again.";

// Opens the journal into the call. One that was asked for has to be writable; the usual one may be missing.
Ended OpenJournal(CrashCall& call, std::optional<CrashJournal>& journal) {
    const std::filesystem::path path = CrashJournalPath(CrashRecordPath(call.options.record), call.options.journal);
    const std::uint32_t error = path.empty() ? ERROR_PATH_NOT_FOUND : journal.emplace(path).Open();
    if (error == ERROR_SUCCESS) {
        call.journal = &*journal;
        return std::nullopt;
    }
    if (!call.options.journal.empty()) {
        return RefuseFile(call.out, "write the journal", path, error);
    }
    call.journalError = zo::ErrorText(error);
    call.out.Hint("The journal cannot be written: " + call.journalError);
    return std::nullopt;
}

// The dumps for which the engine fails although their headers are sound, and why.
std::string FailingDumps(const CrashResult& trial, const CrashDumpLine*& first) {
    std::string names;
    for (const CrashDumpLine& dump : trial.dumps) {
        if (dump.failure == 0 || !dump.header.sound) continue;
        if (first == nullptr) first = &dump;
        names += (names.empty() ? "" : ", ") + Quote(FileName(dump.path));
    }
    return names;
}

Ended CheckEngine(const CrashCall& call, const CrashTrial& trial) {
    if (!trial.failure.empty()) {
        return RefuseCall(call, trial.result, {"refused", "the dumps could not be analysed. " + trial.failure},
                          {kExitFailed, trial.failure + kNothingLost,
                           "Find the dump with \"zoctl crash analyse FILE\" and move it to another folder."});
    }
    const CrashResult& result = trial.result;
    if (result.status < 0) {
        const CrashFailure failure = DescribeCrashFailure(result, call.options, call.mode);
        const StatusText text = FullStatusText(result.status, failure.subject);
        const std::string message =
            zo::Format("Could not {}: {} [{} {}]", failure.what, text.meaning, text.name, text.value);
        return RefuseCall(call, result, {"refused", "could not " + failure.what + ", " + text.name},
                          {text.exitCode, message, text.advice});
    }
    if (call.options.passFailed) return std::nullopt;
    const CrashDumpLine* first = nullptr;
    const std::string names = FailingDumps(result, first);
    if (first == nullptr) return std::nullopt;
    return RefuseCall(call, result, {"refused", "the debugger engine failed for another dump of the run"},
                      {kExitFailed,
                       zo::Format("The debugger engine failed for {}, although the header is sound: {}{}", names,
                                  StatusInWords(first->failure), kNothingLost),
                       FullStatusText(first->failure, Subject::kEngine).advice +
                           std::string(" --pass-failed processes the other dumps and gives up these.")});
}

int Cancelled(const CrashCall& call, const CrashResult& trial) {
    return RefuseCall(
        call, trial, {"refused", "cancelled"},
        {kExitCancelled, "Cancelled before anything was sent.", "The record was not changed; run it again."});
}

Ended CheckServerAnswers(const CrashCall& call, const CrashResult& trial, const Cancellation& cancellation) {
    if (trial.stats.dumpsSelected == 0) return std::nullopt;
    const std::string server = CrashServer(call.options);
    const std::uint32_t error = ProbeServer(server, kProbeMs, cancellation);
    if (error == ERROR_SUCCESS) return std::nullopt;
    if (error == ERROR_CANCELLED) return Cancelled(call, trial);
    const std::string reason = zo::Format("{} (error {})", ServerErrorText(error), error);
    return RefuseCall(
        call, trial, {"refused", "the server cannot be used, " + reason, error},
        {kExitFailed, zo::Format("The server {} cannot be used: {}.{}", Quote(server), reason, kNothingLost),
         "Check the address, the network and the proxy, and that Windows trusts the server's certificate."});
}

// What only the trial knows: the signatures, and the dumps that the run did not come to.
void AddFromTrial(const CrashResult& trial, CrashResult& result) {
    for (const CrashDumpLine& known : trial.dumps) {
        const auto same = std::find_if(result.dumps.begin(), result.dumps.end(),
                                       [&known](const CrashDumpLine& dump) { return dump.path == known.path; });
        if (same == result.dumps.end()) {
            result.dumps.push_back(known);
            result.dumps.back().reached = false;
        } else {
            same->signature = known.signature;
            same->address = known.address;
        }
    }
}

}  // namespace

int SendDumps(Output& out, const CrashOptions& options, const std::function<void(const CrashMessage&)>& progress) {
    CrashCall call{out, options, CrashMode::kSend};
    std::optional<CrashJournal> journal;
    CrashTrial trial;
    {
        const Cancellation cancellation;
        trial = TryCrashReporter(options, cancellation);
        if (trial.result.cancelled) return Cancelled(call, trial.result);
        if (!trial.failure.empty() || trial.result.stats.dumpsFound > 0) {
            if (const Ended ended = OpenJournal(call, journal)) return *ended;
        }
        if (const Ended ended = CheckEngine(call, trial)) return *ended;
        if (const Ended ended = CheckServerAnswers(call, trial.result, cancellation)) return *ended;
    }
    CrashResult result = RunCrashReporter(options, CrashMode::kSend, progress);
    AddFromTrial(trial.result, result);
    return FinishCall(call, result);
}

}  // namespace zoctl
