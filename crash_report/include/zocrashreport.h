#ifndef ZOCRASHREPORT_H
#define ZOCRASHREPORT_H

/* ZoProtectorLib: the crash reporter.
 *
 * Finds the kernel minidumps written since its last run, has the debugger engine analyse them, and reports those that
 * concern the suite's drivers to a crash server over HTTPS. Plain C functions; this header stands alone and can be used
 * from C99, C++ and foreign-function interfaces. docs/crash-reports.md describes what is sent and what is promised.
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
 *     int32_t status = ZoCrashReport_Run(&stats);    // on a thread of the caller; another thread calls
 *                                                    // ZoCrashReport_NotifyNetworkOk when the network is up
 *
 * Conventions
 *   - Every function returns an HRESULT-style status: 0 is success, negative is failure.
 *   - There is one reporter in a process. The first call of any of these functions creates it, and it lasts until the
 *     library is unloaded. It has working defaults, so none of the setters has to be called.
 *   - Strings are UTF-16 and zero-terminated unless a description says otherwise. They stay the caller's; the reporter
 *     copies what it keeps.
 *   - Everything runs on the calling thread. Only one ZoCrashReport_Run or ZoCrashReport_UploadSingleDump may run at a
 *     time; meanwhile any other thread may call ZoCrashReport_NotifyNetworkOk, _Cancel, _ResetCancel and
 *     _SetTargetDrivers. Set the logger, the scrambler and the configuration while nothing runs.
 *
 * Which process should run it
 *   - A program of the user, not a service: documents are sent through WinINet, which Microsoft does not support in
 *     services. The proxy settings are those of the user whose account the process has; the local system account
 *     usually has none. A service can start a program in the user's session for this, "zoctl crash run" for instance.
 *   - One whose manifest lists the supported versions of Windows (the "supportedOS" entries). Without them Windows
 *     reports itself as version 6.2, and so does the document.
 *   - One at a time on a machine. Two processes with the same temporary folder also share the staging folder below it,
 *     where the second removes the dumps that the first has had copied. Give each a TMP of its own if both must run.
 *
 * Exceptions
 *   The functions are not noexcept, and only a caller built with the same compiler can catch what they raise. In any
 *   other caller an exception ends the process. Each case, and how to avoid it:
 *   - std::bad_alloc, when memory runs out. A dump of N bytes needs about 4.1 N: keep maxDumpBytes small, and check a
 *     file's size before ZoCrashReport_UploadSingleDump, which has no limit.
 *   - std::filesystem::filesystem_error "create_directories", when the staging folder cannot be made. Make sure that
 *     the process may create folders in its temporary folder, or configure a minidumpDir that it may read.
 *   - std::filesystem::filesystem_error "exists", when it cannot be determined whether a debugger library exists. Make
 *     sure that the process may read the folder of its executable and the system folder.
 *   - std::filesystem::filesystem_error, when the listing of the dump folder breaks off. Use a folder on a local disk.
 *   A caller that cannot accept any of them runs the reporter in a process of its own.
 *   What an exception leaves behind: of ZoCrashReport_Run and ZoCrashReport_UploadSingleDump, stats and the dedupe
 *   record as they were, so that the next run finds all its dumps again, those that were sent included; the engine and
 *   the Internet session are closed, and the staged copy is removed if memory allows, else by the next staging. Every
 *   other function leaves the earlier state. */

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

/* Turns a document into the payload that is sent, in a way that the server can undo.
 *
 *   in, inLength   the document, not zero-terminated
 *   out            where the payload goes, or null to ask for its size
 *   outCapacity    bytes at out; 0 with null
 *   outLength      receives the payload's length
 *
 * It is called twice for each document: with null for the size, which it answers with success or 0x8007007A
 * (insufficient buffer), then with a buffer of that size. The payload is as long as the second call reports, at most as
 * long as the buffer. After any other failure, or any failure of the second call, that document is not sent. */
typedef int32_t (*ZoCrashBodyScrambler)(void* context, const uint8_t* in, uint32_t inLength, uint8_t* out,
                                        uint32_t outCapacity, uint32_t* outLength);

/* The default path of the dedupe record, below the user's local application data folder. */
#define ZOCRASH_DEFAULT_RECORD L"ZoProtector\\crash_compare.dat"

/* 72 bytes, with natural alignment. Null, empty strings and zeros mean the defaults. */
typedef struct ZoCrashReportConfig {
    const wchar_t* serverUrl;       /* "https://HOST[:PORT][/PATH]"; default: a setting of the build */
    const wchar_t* appName;         /* sent as AppName; default "TeskShield" */
    const wchar_t* appVersion;      /* sent as AppVer; default "100.0.100.1" */
    uint32_t lcid;                  /* sent as LCID; default 2502 */
    const wchar_t* minidumpDir;     /* default: the registry's MinidumpDir of CrashControl, else WINDOWS\Minidump */
    const wchar_t* compareFilePath; /* the dedupe record; default: LOCALAPPDATA\ZOCRASH_DEFAULT_RECORD */
    int32_t uploadAll;              /* not 0: report every new dump, matched or not */
    uint64_t maxDumpBytes;          /* ZoCrashReport_Run ignores larger files; default 10485760 */
    uint32_t networkWaitSeconds;    /* longest wait for ZoCrashReport_NotifyNetworkOk; default 300 */
} ZoCrashReportConfig;

/* 2076 bytes. In and out: each call adds to the counters that it finds, so that one record can hold totals. In what one
 * call adds, dumpsSelected = queriesAccepted + queriesAlreadyKnown + queriesFailed, and queriesAccepted =
 * uploadsSucceeded + uploadsFailed. */
typedef struct ZoCrashRunStats {
    uint32_t dumpsFound;          /* new dumps */
    uint32_t dumpsSelected;       /* of these, analysed and chosen for a report */
    uint32_t queriesAccepted;     /* the server wants the dump */
    uint32_t queriesAlreadyKnown; /* the server knows the crash */
    uint32_t queriesFailed;       /* no query could be made, or the answer was neither */
    uint32_t uploadsSucceeded;
    uint32_t uploadsFailed;
    /* The targets that matched, with "|" between those of one dump and ";" between dumps; cut after 1023 characters.
     * Unchanged when nothing matched. */
    wchar_t matchedDrivers[1024];
} ZoCrashRunStats;

/* Replaces the whole configuration and takes a cancel back. Null: the defaults. Always 0. */
ZO_API int32_t ZoCrashReport_Initialize(const ZoCrashReportConfig* config);

/* Takes a cancel back; nothing is released, and the reporter stays usable. Always 0. */
ZO_API int32_t ZoCrashReport_Uninitialize(void);

/* Null: no messages. The context is passed to each call. Always 0. */
ZO_API int32_t ZoCrashReport_SetLogger(ZoCrashLogger logger, void* context);

/* Replaces the built-in scrambler, which cannot be restored. Null: documents are sent as they are. Always 0. */
ZO_API int32_t ZoCrashReport_SetBodyScrambler(ZoCrashBodyScrambler scrambler, void* context);

/* The drivers whose crashes are reported: a dump is reported when its analysis text (the bugcheck line and the stack
 * trace) contains one of these names, regardless of case. Narrow strings in the system's ANSI code page; null and empty
 * ones are left out. No names at all: "ZoProtector" and "ZoProtectorDriver". Used from the next dump on. Always 0. */
ZO_API int32_t ZoCrashReport_SetTargetDrivers(const char* const* names, uint32_t count);

/* Says that the network is up: a run waits for this before it does anything with its dumps. It cannot be taken back
 * until the library is unloaded. Always 0. */
ZO_API int32_t ZoCrashReport_NotifyNetworkOk(void);

/* Asks a run to stop at its next check: at its start, while it waits for the network and after that, between dumps, and
 * between two reads of a reply. A dump that was begun is finished. Stays in force for later runs too, until
 * ZoCrashReport_ResetCancel or ZoCrashReport_Initialize. Always 0.
 *
 * A cancel does not interrupt a call of the platform. Connecting, sending and the first read of a reply end by the
 * platform's own time limits. A reply is read in pieces of 1,024 bytes until it ends, 64 KiB have come or a minute has
 * passed, but a single read returns only when its piece is full, the reply ends or the platform's receive time limit
 * passes: a server that sends a byte now and then can stretch one read to 1,024 times that limit. */
ZO_API int32_t ZoCrashReport_Cancel(void);

/* Takes a cancel back. Always 0. */
ZO_API int32_t ZoCrashReport_ResetCancel(void);

/* Goes through the dumps that are newer than the dedupe record, oldest first. It asks the server about each one that
 * concerns a target, and sends it when the server wants it. Then it moves the record past every dump that it found,
 * whatever became of it: no dump is offered twice.
 *
 * stats   may be null
 *
 *   0            done, also when there was nothing new; the counters say what became of the dumps
 *   0x80004004   cancelled. At the start, or right after the wait for the network: nothing was written, and stats is
 *                unchanged. Later, also while the debugger engine loads: stats is filled and the record is moved, so
 *                that the dumps that were not reached are not offered again
 *   0x80070003   there is no dump folder
 *   0x80070005   the dump folder denies access, and there is no temporary folder to copy it to, or a link is in the
 *                place of the staging folder or of the folder above it, or one of them cannot be held open (another
 *                program has it open to delete it, for example)
 *   a ZOP_E_ status of zoprotector_status.h: the driver could not copy a dump folder that denies access (this needs
 *                ZoProtector_Initialize)
 *   0x80070102   the network was not reported up in time, or a cancel ended the wait; stats is filled and the record is
 *                unchanged
 *   0x80070002   a debugger library is missing; any other status of the debugger engine: it could not be set up
 *   a Win32 error's HRESULT: the Internet session could not be opened */
ZO_API int32_t ZoCrashReport_Run(ZoCrashRunStats* stats);

/* The same for one file, whatever its size and whether it was dealt with before. The dedupe record is not read but is
 * written: afterwards it holds this dump's time, even when it held a later one. A cancel that is set already is noticed
 * only after the wait for the network.
 *
 *   0x80070057   null or empty path
 *   0x80070002   no such file (or a debugger library is missing)
 *   a Win32 error's HRESULT: the file's time cannot be read
 *   and the statuses of ZoCrashReport_Run from the wait for the network on */
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
