#include "pipeline.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "crash_document.h"
#include "debug_engine.h"
#include "dedupe_record.h"
#include "errors.h"
#include "reporter_messages.h"
#include "server_session.h"
#include "text.h"

namespace zocrash {

namespace {

constexpr auto kWaitTimedOut = static_cast<std::int32_t>(0x80070102u);

class Pipeline {
  public:
    Pipeline(CrashReporterContext& reporter, const ZoCrashRunStats* given) : reporter_(reporter) {
        if (given != nullptr) stats_ = *given;
    }

    [[nodiscard]] const ZoCrashRunStats& Stats() const noexcept { return stats_; }

    // Clears `report` when the caller's record is to stay unchanged.
    [[nodiscard]] std::int32_t Run(const DumpList& dumps, bool& report);

  private:
    [[nodiscard]] std::optional<DumpAnalysisResult> Analyse(const DumpEntry& entry, DebugEngine& engine);
    [[nodiscard]] bool Select(const DumpEntry& entry, const DumpAnalysisResult& analysis);
    void Report(const DumpAnalysisResult& analysis, CrashProtocolDocument& document, const ServerSession& server);
    void StoreMatched();

    CrashReporterContext& reporter_;
    ZoCrashRunStats stats_{};
    std::wstring matchedOfRun_;
};

std::int32_t Pipeline::Run(const DumpList& dumps, bool& report) {
    stats_.dumpsFound += static_cast<std::uint32_t>(dumps.size());
    if (!reporter_.network.Wait(reporter_.settings.networkWaitSeconds, reporter_.cancel)) {
        reporter_.Log(ZOCRASH_LOG_WARNING, "Network never reported up; aborting");
        return kWaitTimedOut;
    }
    if (reporter_.cancel.load()) {
        report = false;
        return zo::kAborted;
    }

    DebugEngine engine;
    if (const std::int32_t status = engine.Open(); status < 0) {
        reporter_.Log(ZOCRASH_LOG_ERROR, kEngineFailedMessage, zo::Bits(status));
        return status;
    }
    CrashProtocolDocument document(reporter_.settings);
    ServerSession server(reporter_);
    if (const std::int32_t status = server.Open(); status < 0) {
        reporter_.Log(ZOCRASH_LOG_ERROR, kInternetFailedMessage, zo::Bits(status));
        return status;
    }

    for (const DumpEntry& entry : dumps) {
        if (reporter_.cancel.load()) break;
        const std::optional<DumpAnalysisResult> analysis = Analyse(entry, engine);
        if (analysis && Select(entry, *analysis)) Report(*analysis, document, server);
    }

    // The newest one's time, also when the run was cancelled before that dump.
    WriteDedupeRecord(reporter_.settings.compareFilePath, dumps.back().lastWrite);
    StoreMatched();
    return reporter_.cancel.load() ? zo::kAborted : zo::kOk;
}

std::optional<DumpAnalysisResult> Pipeline::Analyse(const DumpEntry& entry, DebugEngine& engine) {
    DumpAnalysisResult analysis;
    const std::int32_t status = engine.Analyse(zo::AnsiFromWide(entry.path), entry.lastWrite, analysis);
    if (status >= 0) return analysis;
    reporter_.Log(ZOCRASH_LOG_WARNING, kDumpFailedMessage, zo::Utf8FromWide(entry.path), zo::Bits(status));
    return std::nullopt;
}

// Whether the dump is to be reported.
bool Pipeline::Select(const DumpEntry& entry, const DumpAnalysisResult& analysis) {
    const std::string matched = reporter_.targets.Match(analysis.analysisText);
    const bool upload = reporter_.settings.uploadAll || !matched.empty();
    reporter_.Log(ZOCRASH_LOG_INFO, kDumpAnalysedMessage, zo::Utf8FromWide(entry.path), matched, upload);
    if (!upload) return false;

    ++stats_.dumpsSelected;
    if (!matched.empty()) {
        if (!matchedOfRun_.empty()) matchedOfRun_ += L';';
        // The engine prints, and callers name their drivers, in the ANSI code page.
        matchedOfRun_ += zo::WideFromAnsi(matched);
    }
    return true;
}

// One query and at most one upload; nothing is tried again.
void Pipeline::Report(const DumpAnalysisResult& analysis, CrashProtocolDocument& document,
                      const ServerSession& server) {
    const int answer = server.Send(document.Query(analysis)).status;
    if (answer == kReplyKnown) {
        ++stats_.queriesAlreadyKnown;
        return;
    }
    if (answer != kReplyAccepted) {
        ++stats_.queriesFailed;
        return;
    }
    ++stats_.queriesAccepted;
    RequestBody full;
    const bool sent =
        document.BuildFullDocument(analysis, full) >= 0 && server.Send(std::move(full)).status == kReplyAccepted;
    ++(sent ? stats_.uploadsSucceeded : stats_.uploadsFailed);
}

void Pipeline::StoreMatched() {
    if (matchedOfRun_.empty()) return;
    const std::size_t length = std::min(matchedOfRun_.size(), std::size(stats_.matchedDrivers) - 1);
    std::copy_n(matchedOfRun_.begin(), length, stats_.matchedDrivers);
    stats_.matchedDrivers[length] = L'\0';
}

}  // namespace

std::int32_t ProcessDumps(CrashReporterContext& reporter, const DumpList& dumps, ZoCrashRunStats* stats) {
    Pipeline pipeline(reporter, stats);
    bool report = true;
    const std::int32_t status = pipeline.Run(dumps, report);
    if (report && stats != nullptr) *stats = pipeline.Stats();
    return status;
}

}  // namespace zocrash
