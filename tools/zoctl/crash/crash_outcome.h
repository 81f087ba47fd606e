#pragma once

// What became of each dump of a call: in a word for programs, in a sentence for people.

#include <string>

#include "crash_session.h"
#include "output.h"

namespace zoctl {

// The counters and what they leave over, so that they add up: found = notAnalysed + notSelected + notReached +
// selected; selected = accepted + alreadyKnown + queriesFailed + heldBack; accepted = uploaded + uploadsFailed.
struct Tally {
    explicit Tally(const CrashResult& result);
    [[nodiscard]] Json ToJson() const;

    const ZoCrashRunStats& stats;
    std::uint32_t heldBack;
    std::uint32_t queriesFailed;
    std::uint32_t matched = 0;
    std::uint32_t notAnalysed = 0;
    std::uint32_t notSelected = 0;
    std::uint32_t notReached = 0;
};

struct DumpOutcome {
    const char* result;        // "sent", "known", ...; docs/zoctl.md lists them
    std::string sentence;      // empty when the dump was only to be shown
    bool offeredAgain = true;  // by a later run
};

// Why a run was given up before the library was asked to send anything. Applies to the dumps that it would have sent.
struct Refusal {
    const char* result = "refused";
    std::string reason;
    std::uint32_t probeError = 0;  // of the server, 0 when it was not the server
};

// refusal: null when the call was made.
[[nodiscard]] DumpOutcome OutcomeOf(const CrashDumpLine& dump, const CrashResult& result, CrashMode mode,
                                    const Refusal* refusal = nullptr);

// "ERROR_FILE_CORRUPT (0x80070570)"
[[nodiscard]] std::string StatusLabel(std::int32_t status);
// The same, a colon and what it means.
[[nodiscard]] std::string StatusInWords(std::int32_t status);

// Whether the dedupe record was moved past the dumps of a real run: not by a cancel that comes before the first dump,
// nor by an engine that cannot be set up.
[[nodiscard]] bool MovedRecord(const CrashResult& result);

// Whether each dump failed with the same status, and at least one of them has a sound header.
[[nodiscard]] bool EngineIsAtFault(const CrashResult& result);

// Without a folder.
[[nodiscard]] std::string FileName(const std::string& path);

// What is known of the dump and, unless it was only to be shown, what became of it.
[[nodiscard]] Json DumpJson(const CrashDumpLine& dump, const DumpOutcome& outcome);
// The reverse, as far as another zoctl wrote it.
[[nodiscard]] CrashDumpLine DumpFromJson(const Json& json);

}  // namespace zoctl
