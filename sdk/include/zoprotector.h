#ifndef ZOPROTECTOR_H
#define ZOPROTECTOR_H

/* ZoProtectorLib: the driver SDK.
 *
 * What a program of the suite needs to install and control the protection driver, to hand it rules, and to read what it
 * saw. Plain C functions; this header stands alone and can be used from C99, C++ and foreign-function interfaces.
 *
 * Conventions
 *   - Every function returns a status of zoprotector_status.h: 0 is success, negative is failure.
 *   - Strings are UTF-16, zero-terminated, and stay the caller's. Paths are ordinary Win32 paths of at most 259
 * characters in full form; relative ones are resolved against the current directory.
 *   - Arguments are checked before the initialised state, so a null pointer gives ZOP_E_INVALID_ARG even when the
 * library is not initialised.
 *   - Functions may be called from any thread. ZoProtector_Initialize and ZoProtector_Uninitialize serialise on one
 * lock; all others run concurrently.
 *   - Nothing is thrown by design, but the functions are not noexcept: running out of memory passes through as
 *     std::bad_alloc. */

#include <stddef.h>
#include <stdint.h>

#include "zoprotector_status.h"

/* The one place of the version number: the build reads it from here. */
#define ZOP_SDK_VERSION_MAJOR 1
#define ZOP_SDK_VERSION_MINOR 0
#define ZOP_SDK_VERSION_PATCH 0

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

/* ---- Records ------------------------------------------------------------------------------------------------------
 */

/* What ZoProtector_GetStatus tells: four pairs of a flag (0 to 255, as the driver sent it) and a count. Their meaning
 * is the driver's. */
typedef struct ZopStatus {
    uint32_t flag1;
    uint32_t count1;
    uint32_t flag2;
    uint32_t count2;
    uint32_t flag3;
    uint32_t count3;
    uint32_t flag4;
    uint32_t count4;
} ZopStatus;

/* The driver's policy for code signatures; the values of mode and minLevel are the driver's. 8 bytes. */
typedef struct ZopSignaturePolicy {
    uint8_t mode;
    uint8_t minLevel;
    uint8_t reserved[6];
} ZopSignaturePolicy;

/* The driver's counters, 76 bytes. Newer drivers add fields at the end and raise the version. */
typedef struct ZopStats {
    uint32_t version;
    uint32_t counters[12];           /* driver-defined */
    uint32_t unsignedBypassAttempts; /* from version 3 on */
    uint32_t moreCounters[5];        /* driver-defined */
} ZopStats;

/* The inner layout of events is the driver's. */
typedef struct ZopEventRecord {
    uint8_t bytes[562];
} ZopEventRecord;

typedef struct ZopRegistryEventRecord {
    uint8_t bytes[1076];
} ZopRegistryEventRecord;

/* Entries of the four rule lists. A driver returns each rule as its add record (driver_records.h) followed by zero
 * bytes. */
typedef struct ZopProcessRuleEntry {
    uint8_t bytes[1044];
} ZopProcessRuleEntry;

typedef struct ZopFileRuleEntry {
    uint8_t bytes[2344];
} ZopFileRuleEntry;

typedef struct ZopRegistryRuleEntry {
    uint8_t bytes[1028];
} ZopRegistryRuleEntry;

typedef struct ZopDllWhitelistEntry {
    uint8_t bytes[1044];
} ZopDllWhitelistEntry;

/* ZoProtectorDriverStatus.state */
#define ZOP_DRIVER_NOT_INSTALLED 0u
#define ZOP_DRIVER_STOPPED 1u
#define ZOP_DRIVER_START_PENDING 2u
#define ZOP_DRIVER_STOP_PENDING 3u
#define ZOP_DRIVER_RUNNING 4u
#define ZOP_DRIVER_STATE_UNKNOWN 255u

/* Start types: the service manager's own numbers. */
#define ZOP_START_BOOT 0u
#define ZOP_START_SYSTEM 1u
#define ZOP_START_AUTO 2u
#define ZOP_START_DEMAND 3u
#define ZOP_START_DISABLED 4u

typedef struct ZoProtectorDriverStatus {
    uint32_t state;              /* ZOP_DRIVER_... */
    uint32_t startType;          /* ZOP_START_... */
    uint32_t processId;          /* of the service's host; 0 for a driver */
    uint32_t instanceRegistered; /* 1 when the minifilter instance has an altitude */
    wchar_t imagePath[520];      /* as the service manager holds it, a "\??\" prefix kept */
    wchar_t altitude[64];
    uint32_t fileVersionMajor; /* of the installed driver file; four zeros when it cannot be read */
    uint32_t fileVersionMinor;
    uint32_t fileVersionBuild;
    uint32_t fileVersionRevision;
} ZoProtectorDriverStatus;

/* ---- Lifecycle, driver-wide switches -------------------------------------------------------------------------------
 */

ZO_API int32_t ZoProtector_Initialize(void);
ZO_API int32_t ZoProtector_Uninitialize(void);
ZO_API int32_t ZoProtector_GetVersion(uint32_t* major, uint32_t* minor, uint32_t* patch);
ZO_API int32_t ZoProtector_GetStatus(ZopStatus* status);
ZO_API int32_t ZoProtector_SetMasterEnabled(int32_t enable);
ZO_API int32_t ZoProtector_GetMasterEnabled(uint32_t* enabled);
ZO_API int32_t ZoProtector_ForceCrash(void);

/* ---- Process rules --------------------------------------------------------------------------------------------------
 */

ZO_API int32_t ZoProtector_AddProcessProtectByPath(const wchar_t* path);
ZO_API int32_t ZoProtector_AddProcessProtectByFolder(const wchar_t* folder, uint32_t recursive);
ZO_API int32_t ZoProtector_RemoveProcessProtect(const wchar_t* path);
ZO_API int32_t ZoProtector_ClearAllProcessProtect(void);

/* ---- File rules -----------------------------------------------------------------------------------------------------
 */

ZO_API int32_t ZoProtector_AddFileProtectByPath(const wchar_t* path);
ZO_API int32_t ZoProtector_AddFileProtectByFolder(const wchar_t* folder, uint8_t recursive, const wchar_t* filter);
ZO_API int32_t ZoProtector_AddFileProtectScoped(const wchar_t* path, int32_t isFolder, int32_t recursive,
                                                const wchar_t* filter, const wchar_t* scope, uint32_t scopeIsFolder,
                                                uint32_t scopeRecursive, uint32_t exclusive);
ZO_API int32_t ZoProtector_RemoveFileProtect(const wchar_t* path);
ZO_API int32_t ZoProtector_ClearAllFileProtect(void);
ZO_API int32_t ZoProtector_EnableFileProtect(int32_t enable);
ZO_API int32_t ZoProtector_AddFileIgnoreProcess(const wchar_t* path, int32_t isFolder, int32_t recursive);
ZO_API int32_t ZoProtector_RemoveFileIgnoreProcess(const wchar_t* path);
ZO_API int32_t ZoProtector_ClearAllFileIgnoreProcesses(void);

/* ---- Registry rules -------------------------------------------------------------------------------------------------
 */

ZO_API int32_t ZoProtector_AddRegistryProtectByKey(const wchar_t* key, uint32_t recursive);
ZO_API int32_t ZoProtector_RemoveRegistryProtect(const wchar_t* key);
ZO_API int32_t ZoProtector_ClearAllRegistryProtect(void);
ZO_API int32_t ZoProtector_AddRegistryIgnoreProcess(const wchar_t* path, int32_t isFolder, int32_t recursive);
ZO_API int32_t ZoProtector_RemoveRegistryIgnoreProcess(const wchar_t* path);
ZO_API int32_t ZoProtector_ClearAllRegistryIgnoreProcesses(void);

/* ---- Signature policy, DLL load filter ------------------------------------------------------------------------------
 */

ZO_API int32_t ZoProtector_SetSignaturePolicy(const ZopSignaturePolicy* policy);
ZO_API int32_t ZoProtector_GetSignaturePolicy(ZopSignaturePolicy* policy);
ZO_API int32_t ZoProtector_QueryPidSignature(uint32_t pid, uint32_t* first, uint32_t* second);
ZO_API int32_t ZoProtector_RefreshPidSignature(uint32_t pid, uint32_t* first, uint32_t* second);
ZO_API int32_t ZoProtector_AddSignatureOverride(uint32_t pid);
ZO_API int32_t ZoProtector_RemoveSignatureOverride(uint32_t pid);
ZO_API int32_t ZoProtector_ClearAllSignatureOverrides(void);
ZO_API int32_t ZoProtector_EnableDllLoadFilter(int32_t enable);
ZO_API int32_t ZoProtector_AddDllWhitelistFolder(const wchar_t* folder, uint32_t recursive);
ZO_API int32_t ZoProtector_RemoveDllWhitelistFolder(const wchar_t* folder);
ZO_API int32_t ZoProtector_ClearAllDllWhitelist(void);

/* ---- Rule lists
 * ------------------------------------------------------------------------------------------------------ */

ZO_API int32_t ZoProtector_ListProcessProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API int32_t ZoProtector_ListFileProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API int32_t ZoProtector_ListRegistryProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API int32_t ZoProtector_ListDllWhitelistRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);

/* ---- Events and counters
 * --------------------------------------------------------------------------------------------- */

ZO_API int32_t ZoProtector_DrainEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count,
                                       uint32_t* dropped, uint32_t* position);
ZO_API int32_t ZoProtector_DrainRegistryEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count,
                                               uint32_t* dropped, uint32_t* position);
ZO_API int32_t ZoProtector_GetStats(ZopStats* stats);
ZO_API int32_t ZoProtector_GetUnsignedBypassAttempts(uint32_t* attempts);

/* ---- The driver as a service
 * ------------------------------------------------------------------------------------------ */

ZO_API int32_t ZoProtector_InstallDriver(const wchar_t* sourcePath, uint32_t startType, const wchar_t* altitude,
                                         uint32_t allowUnload);
ZO_API int32_t ZoProtector_StartDriver(void);
ZO_API int32_t ZoProtector_StopDriver(void);
ZO_API int32_t ZoProtector_UninstallDriver(void);
ZO_API int32_t ZoProtector_ChangeDriverStartType(uint32_t startType);
ZO_API int32_t ZoProtector_QueryDriverStatus(ZoProtectorDriverStatus* status);
ZO_API int32_t ZoProtector_GetDriverFileVersion(uint32_t* major, uint32_t* minor, uint32_t* build, uint32_t* revision);
ZO_API int32_t ZoProtector_UpgradeDriver(const wchar_t* newDriverPath, uint32_t* upgraded, uint32_t* replacedByDriver);

/* ---- File operations that the driver performs
 * --------------------------------------------------------------------------- */

ZO_API int32_t ZoProtector_CopyDirectory(const wchar_t* sourceDir, const wchar_t* destinationDir, int32_t option1,
                                         uint32_t option2, uint32_t* filesCopied, uint32_t* dirsCopied,
                                         uint32_t* skipped);
ZO_API int32_t ZoProtector_AddDriverSelfProtect(void);

/* ---- Machine identity
 * ----------------------------------------------------------------------------------------------------- */

ZO_API int32_t ZoProtector_GetHardwareId(wchar_t* text, uint32_t capacity);
ZO_API int32_t ZoProtector_GetHardwareIdBytes(uint8_t* buffer, uint32_t bufferSize, uint32_t* bytesWritten);

#ifdef __cplusplus
}
#endif

#endif
