#ifndef ZOCRASHREPORT_H
#define ZOCRASHREPORT_H

/* ZoProtectorLib: the crash reporter.
 *
 * Finds the kernel minidumps written since its last run, has the debugger engine analyse them, and reports those that
 * concern the suite's drivers to a crash server over HTTPS. Plain C functions; this header stands alone. Everything
 * runs on the thread that calls ZoCrashReport_Run. */

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

typedef void (*ZoCrashLogger)(void* context, int32_t level, const wchar_t* message);

typedef int32_t (*ZoCrashBodyScrambler)(void* context, const uint8_t* in, uint32_t inLength, uint8_t* out,
                                        uint32_t outCapacity, uint32_t* outLength);

/* Natural alignment: 72 bytes. */
typedef struct ZoCrashReportConfig {
    const wchar_t* serverUrl;
    const wchar_t* appName;
    const wchar_t* appVersion;
    uint32_t lcid;
    const wchar_t* minidumpDir;
    const wchar_t* compareFilePath;
    int32_t uploadAll;
    uint64_t maxDumpBytes;
    uint32_t networkWaitSeconds;
} ZoCrashReportConfig;

/* 2076 bytes. In and out: the counters are added to what the caller passes in. */
typedef struct ZoCrashRunStats {
    uint32_t dumpsFound;
    uint32_t dumpsSelected;
    uint32_t queriesAccepted;
    uint32_t queriesAlreadyKnown;
    uint32_t queriesFailed;
    uint32_t uploadsSucceeded;
    uint32_t uploadsFailed;
    wchar_t matchedDrivers[1024];
} ZoCrashRunStats;

ZO_API int32_t ZoCrashReport_Initialize(const ZoCrashReportConfig* config);
ZO_API int32_t ZoCrashReport_Uninitialize(void);
ZO_API int32_t ZoCrashReport_SetLogger(ZoCrashLogger logger, void* context);
ZO_API int32_t ZoCrashReport_SetBodyScrambler(ZoCrashBodyScrambler scrambler, void* context);
ZO_API int32_t ZoCrashReport_SetTargetDrivers(const char* const* names, uint32_t count);
ZO_API int32_t ZoCrashReport_NotifyNetworkOk(void);
ZO_API int32_t ZoCrashReport_Cancel(void);
ZO_API int32_t ZoCrashReport_ResetCancel(void);
ZO_API int32_t ZoCrashReport_Run(ZoCrashRunStats* stats);
ZO_API int32_t ZoCrashReport_UploadSingleDump(const wchar_t* dumpPath, ZoCrashRunStats* stats);

#ifdef __cplusplus
}
#endif

#endif
