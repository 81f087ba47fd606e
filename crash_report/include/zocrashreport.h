#ifndef ZOCRASHREPORT_H
#define ZOCRASHREPORT_H

/* ZoProtectorLib: the crash reporter.
 *
 * Finds the kernel minidumps written since its last run, has the debugger engine analyse them, and reports those that
 * concern the suite's drivers to a crash server over HTTPS. Plain C functions; this header stands alone and can be used
 * from C99, C++ and foreign-function interfaces. docs/crash-reports.md tells what is sent and what is promised.
 *
 * In short
 *
 *     ZoCrashReportConfig config = {0};
 *     config.serverUrl = L"https://crash.example/crash";
 *     config.appName = L"Suite";
 *     config.appVersion = L"3.2.0";
 *     ZoCrashReport_Initialize(&config);
 *     ZoCrashReport_SetLogger(WriteToOurLog, NULL);
 *     ...
 *     ZoCrashRunStats stats = {0};
 *     int32_t status = ZoCrashReport_Run(&stats);    // on a thread of the caller's; another one calls
 *                                                    // ZoCrashReport_NotifyNetworkOk when the network is up
 *
 * Conventions
 *   - Every function returns an HRESULT-style status: 0 is success, negative is failure.
 *   - There is one reporter in a process. It comes into being with the first call of any of these functions and lasts
 *     until the library unloads; it has working defaults, so none of the setters has to be called.
 *   - Strings are UTF-16 and zero-terminated unless a description says otherwise, and stay the caller's: what is kept
 *     is copied.
 *   - Everything runs on the calling thread. One ZoCrashReport_Run or ZoCrashReport_UploadSingleDump at a time;
 *     meanwhile any other thread may call ZoCrashReport_NotifyNetworkOk, _Cancel, _ResetCancel and _SetTargetDrivers.
 *     Set logger, scrambler and configuration while nothing runs.
 *   - The functions are not noexcept. Running out of memory passes through as std::bad_alloc;
 *     std::filesystem::filesystem_error passes through where the staging folder cannot be made ("create_directories"),
 *     where it cannot be told whether a debugger library exists ("exists") and where the listing of the dump folder
 *     breaks off. */

#include <stddef.h>
#include <stdint.h>

#ifndef ZO_API
#if defined(ZO_BUILDING_LIBRARY)
#define ZO_API __declspec(dllexport)
#elif defined(ZO_NO_IMPORT)
#define ZO_API /* for those who load the library themselves and only want the declarations */
#else
#define ZO_API __declspec(dllimport)
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define ZOCRASH_LOG_INFO ((int32_t)0)
#define ZOCRASH_LOG_WARNING ((int32_t)1)
#define ZOCRASH_LOG_ERROR ((int32_t)2)

/* Receives each message of the reporter, on the thread that runs it. The message is valid during the call only. The
 * logger may call ZoCrashReport_Cancel. The reporter writes nowhere else.
 *
 * These messages are the only way to learn what became of a single dump, and their form is kept:
 *
 *   0  "Minidump dir: PATH"                              where the run looks for dumps
 *   0  "Found N new minidump(s)"
 *   0  "Dump PATH matched=[NAMES] upload=true"           analysed; NAMES of the targets, "|" between them; "false": it
 *                                                        concerns no target and is not reported
 *   1  "Analyze failed: PATH (0xSTATUS)"                 the debugger engine failed on this dump
 *   1  "Probe of PATH failed (Win32=N); proceeding anyway"
 *   1  "Access denied to PATH; staging via driver to PATH"
 *   0  "Staged minidumps: files=N, dirs=N, skipped=N; using PATH for the rest of this run"
 *   2  "Driver-side copy failed: 0xSTATUS (files=N, dirs=N, skipped=N)"
 *   2  "Access denied to minidump dir and %TEMP% is unavailable; aborting"
 *   1  "Network never reported up; aborting"
 *   2  "DbgEng load failed: 0xSTATUS"                    the debugger engine could not be set up
 *   2  "Protocol init failed: 0xSTATUS"                  the Internet session could not be opened
 *   0  "Removed staged dir PATH (entries cleared: N)"
 *   1  "Failed to remove staged dir PATH: N"             the Win32 error
 *
 * Statuses have eight lower-case hexadecimal digits, other numbers are decimal. */
typedef void (*ZoCrashLogger)(void* context, int32_t level, const wchar_t* message);

/* Turns a document into the payload that is sent; what it does is agreed with the server.
 *
 *   in, inLength   the document, not zero-terminated
 *   out            where the payload goes, or null to ask for its size
 *   outCapacity    bytes at out; 0 with null
 *   outLength      receives the payload's length
 *
 * It is called twice for each document: with null for the size, which it answers with success or 0x8007007A
 * (insufficient buffer), then with a buffer of that size. The length that the second call tells counts, if it is no
 * larger. Any other failure, and any failure of the second call, gives that document up. */
typedef int32_t (*ZoCrashBodyScrambler)(void* context, const uint8_t* in, uint32_t inLength, uint8_t* out,
                                        uint32_t outCapacity, uint32_t* outLength);

/* Where the dedupe record is unless compareFilePath says otherwise: below the user's local application data folder. */
#define ZOCRASH_DEFAULT_RECORD L"ZoProtector\\crash_compare.dat"

/* Natural alignment: 72 bytes. Null and empty strings and zeros stand for the defaults. */
typedef struct ZoCrashReportConfig {
    const wchar_t* serverUrl;       /* "https://HOST[:PORT][/PATH]"; default: a setting of the build */
    const wchar_t* appName;         /* sent as AppName; default "TeskShield" */
    const wchar_t* appVersion;      /* sent as AppVer; default "100.0.100.1" */
    uint32_t lcid;                  /* sent as LCID; default 2502 */
    const wchar_t* minidumpDir;     /* default: the registry's MinidumpDir of CrashControl, else WINDOWS\Minidump */
    const wchar_t* compareFilePath; /* the dedupe record; default: LOCALAPPDATA\ZOCRASH_DEFAULT_RECORD */
    int32_t uploadAll;              /* not zero: report every new dump, matched or not */
    uint64_t maxDumpBytes;          /* ZoCrashReport_Run ignores larger files; default 10485760 */
    uint32_t networkWaitSeconds;    /* longest wait for ZoCrashReport_NotifyNetworkOk; default 300 */
} ZoCrashReportConfig;

/* 2076 bytes. In and out: each call adds to the counters that it finds, so that one record can be used for totals.
 * dumpsSelected = queriesAccepted + queriesAlreadyKnown + queriesFailed, and queriesAccepted = uploadsSucceeded +
 * uploadsFailed, for what one call adds. */
typedef struct ZoCrashRunStats {
    uint32_t dumpsFound;          /* new dumps */
    uint32_t dumpsSelected;       /* of these, analysed and to be reported */
    uint32_t queriesAccepted;     /* the server wants the dump */
    uint32_t queriesAlreadyKnown; /* the server knows the crash */
    uint32_t queriesFailed;       /* no query could be made, or no such answer came */
    uint32_t uploadsSucceeded;
    uint32_t uploadsFailed;
    /* The targets that matched: "|" between those of one dump, ";" between dumps; cut after 1023 characters. Replaced
     * only when something matched. */
    wchar_t matchedDrivers[1024];
} ZoCrashRunStats;

/* Replaces the configuration as a whole and takes a cancel back. Null: the defaults. Always 0. */
ZO_API int32_t ZoCrashReport_Initialize(const ZoCrashReportConfig* config);

/* Takes a cancel back; nothing is released, and the reporter stays usable. Always 0. */
ZO_API int32_t ZoCrashReport_Uninitialize(void);

/* Null: silence. The context is handed to each call. Always 0. */
ZO_API int32_t ZoCrashReport_SetLogger(ZoCrashLogger logger, void* context);

/* Puts another scrambler in the place of the built-in one, which then cannot be had back. Null: documents are sent as
 * they are. Always 0. */
ZO_API int32_t ZoCrashReport_SetBodyScrambler(ZoCrashBodyScrambler scrambler, void* context);

/* The names that make a crash one of ours: a dump is reported when the analysis text (the bugcheck line and the stack
 * trace) holds one of them, regardless of case. Narrow strings in the system's ANSI code page; null and empty ones are
 * left out. No names at all: "ZoProtector" and "ZoProtectorDriver". Counts from the next dump on. Always 0. */
ZO_API int32_t ZoCrashReport_SetTargetDrivers(const char* const* names, uint32_t count);

/* Opens the gate at which a run waits before it does anything with its dumps. It stays open until the library unloads.
 * Always 0. */
ZO_API int32_t ZoCrashReport_NotifyNetworkOk(void);

/* Asks a run to stop at its next check: at its start, at the network gate, between dumps. A dump that was begun is
 * finished, and a request that hangs is let go by the platform alone. Stays in force for later runs too, until
 * ZoCrashReport_ResetCancel or ZoCrashReport_Initialize. Always 0. */
ZO_API int32_t ZoCrashReport_Cancel(void);

ZO_API int32_t ZoCrashReport_ResetCancel(void);

/* Goes through the dumps that are newer than the dedupe record, oldest first; asks the server about each that concerns
 * a target, and sends it when the server wants it. Then moves the record on, past every dump that was found, whatever
 * became of it: nothing is offered twice.
 *
 * stats   may be null
 *
 *   0            done, also when there was nothing new; what became of each dump stands in the counters
 *   0x80004004   cancelled. At the start or right after the gate: nothing was written, stats is untouched. Among the
 *                dumps: the record is moved on and stats filled
 *   0x80070003   there is no dump folder
 *   0x80070005   the dump folder denies access and there is no temporary folder to copy it to
 *   a ZOP_E_ status of zoprotector_status.h: the driver's copy of a dump folder that denies access failed (it needs
 *                ZoProtector_Initialize)
 *   0x80070102   the network gate did not open in time, or a cancel ended the wait; stats is filled, the record stays
 *   0x80070002   a debugger library is missing; any other status of the debugger engine: it could not be set up
 *   a Win32 error's HRESULT: the Internet session could not be opened */
ZO_API int32_t ZoCrashReport_Run(ZoCrashRunStats* stats);

/* The same for one file, whatever its size and whether it was dealt with before. The dedupe record is not read but
 * written: it holds this dump's time afterwards, even where it held a later one. A cancel that is already set is only
 * seen at the gate.
 *
 *   0x80070057   null or empty path
 *   0x80070002   no such file (or a debugger library is missing)
 *   a Win32 error's HRESULT: the file's time cannot be read
 *   and the statuses of ZoCrashReport_Run from the gate on */
ZO_API int32_t ZoCrashReport_UploadSingleDump(const wchar_t* dumpPath, ZoCrashRunStats* stats);

/* For programs that load the library at run time: one pointer type for each function, called like it with "Fn" at the
 * end. zoprotector.h says more, also about which of them may be called under the loader lock. */
typedef int32_t (*ZoCrashReport_InitializeFn)(const ZoCrashReportConfig* config);
typedef int32_t (*ZoCrashReport_UninitializeFn)(void);
typedef int32_t (*ZoCrashReport_SetLoggerFn)(ZoCrashLogger logger, void* context);
typedef int32_t (*ZoCrashReport_SetBodyScramblerFn)(ZoCrashBodyScrambler scrambler, void* context);
typedef int32_t (*ZoCrashReport_SetTargetDriversFn)(const char* const* names, uint32_t count);
typedef int32_t (*ZoCrashReport_NotifyNetworkOkFn)(void);
typedef int32_t (*ZoCrashReport_CancelFn)(void);
typedef int32_t (*ZoCrashReport_ResetCancelFn)(void);
typedef int32_t (*ZoCrashReport_RunFn)(ZoCrashRunStats* stats);
typedef int32_t (*ZoCrashReport_UploadSingleDumpFn)(const wchar_t* dumpPath, ZoCrashRunStats* stats);

#ifdef __cplusplus
}
#endif

#endif
