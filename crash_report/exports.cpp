#include <windows.h>

#include <cstddef>
#include <string>

#include "dedupe_record.h"
#include "dump_folder.h"
#include "dump_list.h"
#include "errors.h"
#include "pipeline.h"
#include "reporter_context.h"
#include "reporter_messages.h"
#include "staged_folder.h"
#include "text.h"
#include "zocrashreport.h"

static_assert(sizeof(ZoCrashReportConfig) == 72);
static_assert(offsetof(ZoCrashReportConfig, appName) == 8 && offsetof(ZoCrashReportConfig, appVersion) == 16);
static_assert(offsetof(ZoCrashReportConfig, lcid) == 24 && offsetof(ZoCrashReportConfig, minidumpDir) == 32);
static_assert(offsetof(ZoCrashReportConfig, compareFilePath) == 40 && offsetof(ZoCrashReportConfig, uploadAll) == 48);
static_assert(offsetof(ZoCrashReportConfig, maxDumpBytes) == 56);
static_assert(offsetof(ZoCrashReportConfig, networkWaitSeconds) == 64);
static_assert(sizeof(ZoCrashRunStats) == 2076 && offsetof(ZoCrashRunStats, matchedDrivers) == 28);

using zocrash::CrashReporterContext;
using zocrash::Reporter;

int32_t ZoCrashReport_Initialize(const ZoCrashReportConfig* config) {
    CrashReporterContext& reporter = Reporter();
    reporter.settings = zocrash::MakeSettings(config);
    reporter.cancel.exchange(false);
    return zo::kOk;
}

int32_t ZoCrashReport_Uninitialize(void) {
    CrashReporterContext& reporter = Reporter();
    reporter.cancel.store(true);  // ends a run in another thread that looks at this moment
    reporter.cancel.store(false);
    return zo::kOk;
}

int32_t ZoCrashReport_SetLogger(ZoCrashLogger logger, void* context) {
    CrashReporterContext& reporter = Reporter();
    reporter.logger = logger;
    reporter.loggerContext = context;
    return zo::kOk;
}

int32_t ZoCrashReport_SetBodyScrambler(ZoCrashBodyScrambler scrambler, void* context) {
    CrashReporterContext& reporter = Reporter();
    reporter.scrambler = scrambler;
    reporter.scramblerContext = context;
    return zo::kOk;
}

int32_t ZoCrashReport_SetTargetDrivers(const char* const* names, uint32_t count) {
    Reporter().targets.Replace(names, count);
    return zo::kOk;
}

int32_t ZoCrashReport_NotifyNetworkOk(void) {
    Reporter().network.Open();
    return zo::kOk;
}

int32_t ZoCrashReport_Cancel(void) {
    CrashReporterContext& reporter = Reporter();
    reporter.cancel.exchange(true);
    reporter.network.Wake();
    return zo::kOk;
}

int32_t ZoCrashReport_ResetCancel(void) {
    Reporter().cancel.exchange(false);
    return zo::kOk;
}

int32_t ZoCrashReport_Run(ZoCrashRunStats* stats) {
    CrashReporterContext& reporter = Reporter();
    if (reporter.cancel.load()) return zo::kAborted;

    std::wstring folder = zocrash::ResolveDumpFolder(reporter.settings);
    if (folder.empty()) return zo::HresultFromWin32(ERROR_PATH_NOT_FOUND);
    reporter.Log(ZOCRASH_LOG_INFO, zocrash::kDumpFolderMessage, zo::Utf8FromWide(folder));
    zocrash::StagedFolder staged;
    if (const int32_t status = zocrash::OpenDumpFolder(reporter, folder, staged); status < 0) return status;

    const uint64_t stored = zocrash::ReadDedupeRecord(reporter.settings.compareFilePath);
    const zocrash::DumpList dumps = zocrash::FindNewDumps(folder, stored, reporter.settings.maxDumpBytes);
    reporter.Log(ZOCRASH_LOG_INFO, zocrash::kDumpsFoundMessage, dumps.size());
    const int32_t status = dumps.empty() ? zo::kOk : zocrash::ProcessDumps(reporter, dumps, stats);
    if (!staged.Path().empty()) staged.Remove(reporter);
    return status;
}

int32_t ZoCrashReport_UploadSingleDump(const wchar_t* dumpPath, ZoCrashRunStats* stats) {
    if (dumpPath == nullptr || dumpPath[0] == L'\0') return zo::kInvalidArgument;
    zocrash::DumpList dump;
    if (const int32_t status = zocrash::TakeSingleDump(dumpPath, dump); status < 0) return status;
    // The record is not read, so that this call writes its own dump's time whatever the record held.
    return zocrash::ProcessDumps(Reporter(), dump, stats);
}
