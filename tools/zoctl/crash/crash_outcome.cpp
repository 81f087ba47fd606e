#include "crash_outcome.h"

#include <algorithm>

#include "errors.h"
#include "format.h"

namespace zoctl {

namespace {

// The library counts and does not name dumps, so that the outcome of one is certain only where all selected dumps of
// the call came to the same end.
DumpOutcome OutcomeByCounters(const ZoCrashRunStats& stats) {
    const std::uint32_t all = stats.dumpsSelected;
    if (stats.uploadsSucceeded == all) return {"sent", "sent", false};
    if (stats.queriesAlreadyKnown == all) return {"known", "not sent: the server knows this crash", false};
    if (stats.queriesFailed == all) {
        return {"queryFailed", "not sent: the query was not answered, or refused", false};
    }
    if (stats.uploadsFailed == all) return {"uploadFailed", "not sent: the upload failed", false};
    const bool none = stats.uploadsSucceeded == 0;
    return {none ? "notSent" : "undetermined",
            zo::Format("{}: of {} selected dumps, {} sent, {} known to the server; failed: queries {}, uploads {}",
                       none ? "not sent" : "not known", all, stats.uploadsSucceeded, stats.queriesAlreadyKnown,
                       stats.queriesFailed, stats.uploadsFailed),
            false};
}

Json BugCheckJson(const DumpHeader& header) {
    if (!header.bugCheck) return nullptr;
    Json parameters = Json::array();
    for (const std::uint64_t parameter : header.bugCheck->parameters)
        parameters.push_back(zo::Format("0x{:016X}", parameter));
    return {{"code", zo::Format("0x{:08X}", header.bugCheck->code)}, {"parameters", parameters}};
}

std::uint64_t HexNumber(const Json& text) {
    return std::stoull(text.get<std::string>(), nullptr, 16);
}

}  // namespace

Tally::Tally(const CrashResult& result)
    : stats(result.stats),
      heldBack(result.heldBack),
      queriesFailed(stats.queriesFailed - std::min(heldBack, stats.queriesFailed)) {
    for (const CrashDumpLine& dump : result.dumps) {
        if (!dump.reached) continue;
        if (!dump.matched.empty()) ++matched;
        if (dump.failure != 0) {
            ++notAnalysed;
        } else if (!dump.selected) {
            ++notSelected;
        }
    }
    const std::uint32_t reached = notAnalysed + notSelected + stats.dumpsSelected;
    notReached = stats.dumpsFound - std::min(stats.dumpsFound, reached);
}

Json Tally::ToJson() const {
    return {{"found", stats.dumpsFound},
            {"notAnalysed", notAnalysed},
            {"notSelected", notSelected},
            {"notReached", notReached},
            {"selected", stats.dumpsSelected},
            {"accepted", stats.queriesAccepted},
            {"alreadyKnown", stats.queriesAlreadyKnown},
            {"queriesFailed", queriesFailed},
            {"heldBack", heldBack},
            {"uploaded", stats.uploadsSucceeded},
            {"uploadsFailed", stats.uploadsFailed}};
}

std::string StatusLabel(std::int32_t status) {
    const StatusText text = FullStatusText(status, Subject::kEngine);
    return zo::Format("{} ({})", text.name, text.value);
}

std::string StatusInWords(std::int32_t status) {
    return StatusLabel(status) + ": " + FullStatusText(status, Subject::kEngine).meaning;
}

DumpOutcome OutcomeOf(const CrashDumpLine& dump, const CrashResult& result, CrashMode mode, const Refusal* refusal) {
    const bool offeredAgain = mode != CrashMode::kSend || refusal != nullptr || !MovedRecord(result);
    if (!dump.reached) return {"notReached", "not sent: the run ended before this dump's turn", offeredAgain};
    if (dump.failure != 0) {
        return {"notAnalysed", "not sent: could not be analysed, " + StatusLabel(dump.failure), offeredAgain};
    }
    if (mode == CrashMode::kShow) return {"shown", ""};
    if (!dump.selected) return {"notSelected", "not sent: concerns no target driver", offeredAgain};
    if (refusal != nullptr) return {refusal->result, "not sent: " + refusal->reason, true};
    return mode == CrashMode::kDryRun ? DumpOutcome{"heldBack", "would be asked about"}
                                      : OutcomeByCounters(result.stats);
}

bool MovedRecord(const CrashResult& result) {
    return result.stats.dumpsFound > 0 && (result.status >= 0 || result.status == zo::kAborted);
}

bool EngineIsAtFault(const CrashResult& result) {
    const auto& dumps = result.dumps;
    return std::any_of(dumps.begin(), dumps.end(), [](const CrashDumpLine& dump) { return dump.header.sound; }) &&
           std::all_of(dumps.begin(), dumps.end(), [&dumps](const CrashDumpLine& dump) {
               return dump.failure != 0 && dump.failure == dumps.front().failure;
           });
}

std::string FileName(const std::string& path) {
    return path.substr(path.find_last_of("\\/") + 1);
}

Json DumpJson(const CrashDumpLine& dump, const DumpOutcome& outcome) {
    Json entry = {{"path", dump.path},
                  {"matched", dump.matched},
                  {"bugCheck", BugCheckJson(dump.header)},
                  {"soundHeader", dump.header.sound}};
    if (dump.failure != 0) {
        entry["failure"] = zo::Format("0x{:08x}", zo::Bits(dump.failure));
        entry["status"] = StatusJson(dump.failure, Subject::kEngine);
    }
    if (!dump.signature.empty()) {
        entry["signature"] = dump.signature;
        entry["address"] = dump.address;
    }
    if (outcome.sentence.empty()) return entry;
    entry["result"] = outcome.result;
    entry["outcome"] = outcome.sentence;
    entry["sent"] = outcome.result == std::string_view("sent");
    entry["offeredAgain"] = outcome.offeredAgain;
    return entry;
}

CrashDumpLine DumpFromJson(const Json& json) {
    CrashDumpLine dump{.path = json.at("path"), .matched = json.at("matched")};
    dump.header.sound = json.at("soundHeader");
    if (const Json& check = json.at("bugCheck"); !check.is_null()) {
        dump.header.bugCheck.emplace().code = static_cast<std::uint32_t>(HexNumber(check.at("code")));
        for (std::size_t i = 0; std::uint64_t& parameter : dump.header.bugCheck->parameters)
            parameter = HexNumber(check.at("parameters").at(i++));
    }
    if (json.contains("failure")) dump.failure = static_cast<std::int32_t>(HexNumber(json.at("failure")));
    dump.signature = json.value("signature", "");
    dump.address = json.value("address", "");
    return dump;
}

}  // namespace zoctl
