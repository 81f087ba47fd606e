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

/* These work through the service manager, the registry and the file system. None but ZoProtector_UninstallDriver (which
 * closes it) and ZoProtector_UpgradeDriver (which may open it) touches the channel to the driver, and none is
 * serialised against another: two threads or processes that install or remove at the same time can meet each other's
 * half-done work. They write no lines to the diagnostic log.
 *
 * Common failures of all of them, "the usual" below:
 *   ZOP_E_DRIVER_NOT_FOUND  no such service, file or folder
 *   ZOP_E_ACCESS_DENIED     the caller lacks the rights (administrator for everything but the queries)
 *   ZOP_E_INVALID_ARG       the system refused a parameter
 *   0x8007xxxx              any other Win32 error, ZOP_STATUS_FROM_WIN32(error); 0x8007007A where a path of the driver
 *                           does not fit in 260 characters */

/* Copies the driver file to System32\drivers\ZoProtectorDriver.sys, registers the service "ZoProtector" (a file-system
 * driver of the group "FSFilter Activity Monitor") and its minifilter instance. Does not start it. May be repeated: an
 * existing service is reconfigured and its instance rewritten.
 *
 *   sourcePath   the driver file, at most 259 characters. Null or empty: "ZoProtectorDriver.sys" beside the executable
 *                of this process, which is not always where the library lies: a caller that keeps the driver beside the
 *                library passes the path.
 *   startType    ZOP_START_...; any number above 4 counts as ZOP_START_DEMAND
 *   altitude     of the minifilter, written as it is. Null or empty: "385100"
 *   allowUnload  non-zero lets the filter manager unload the driver
 *
 * A file of the same size that is there already counts as the same driver and is not copied over, whatever it holds: to
 * put another build of equal size in place use ZoProtector_UpgradeDriver, or uninstall first.
 *
 * ZOP_E_INVALID_ARG (also for a longer sourcePath), ZOP_E_DRIVER_NOT_FOUND (also when there is no source file),
 * 0x80070430 while the service is marked for deletion, the usual. What was done before a failing step stays done. */
ZO_API int32_t ZoProtector_InstallDriver(const wchar_t* sourcePath, uint32_t startType, const wchar_t* altitude,
                                         uint32_t allowUnload);

/* Starts the service; one that runs already is success. Does not wait for the running state. The usual; 0x80070422 when
 * its start type is ZOP_START_DISABLED. */
ZO_API int32_t ZoProtector_StartDriver(void);

/* Stops the service and waits until it has stopped: half a second at least, about 15 seconds at most, then 0x8007041D
 * (it may still stop later). A stopped service is success at once. A driver does not unload while a handle to it is
 * open, so call ZoProtector_Uninitialize first. The usual. */
ZO_API int32_t ZoProtector_StopDriver(void);

/* Closes the channel (ZoProtector_Uninitialize), stops the service as above whatever comes of it, and removes the
 * service, its minifilter instance and the driver file. Success also when nothing was installed, and when the driver
 * file is in use and stays behind. A service that does not stop, or that another program holds open, disappears once
 * that ends. The usual; when the service cannot be opened or deleted nothing further is removed. */
ZO_API int32_t ZoProtector_UninstallDriver(void);

/* Changes the start type and nothing else; any number above 4 counts as ZOP_START_DEMAND. The usual. */
ZO_API int32_t ZoProtector_ChangeDriverStartType(uint32_t startType);

/* Fills the caller's record. A service that is not installed is success with state ZOP_DRIVER_NOT_INSTALLED and
 * startType ZOP_START_DEMAND. What cannot be read stays as it was set at the start: state ZOP_DRIVER_STATE_UNKNOWN,
 * startType ZOP_START_DEMAND, everything else 0 or empty. An altitude of more than 63 characters cannot be shown and
 * reads as none. ZOP_E_INVALID_ARG for null, the usual.
 *
 *     ZoProtectorDriverStatus status;
 *     if (ZoProtector_QueryDriverStatus(&status) >= 0 && status.state == ZOP_DRIVER_STOPPED) ZoProtector_StartDriver();
 */
ZO_API int32_t ZoProtector_QueryDriverStatus(ZoProtectorDriverStatus* status);

/* The version of the driver file that the service is configured with (without a service: of the file beside the
 * executable), which is not the version of a running driver: ZoProtector_GetVersion tells that. All four pointers are
 * required and are set to 0 first. ZOP_E_INVALID_ARG for null; ZOP_E_DRIVER_NOT_FOUND when there is no file or its
 * version resource is malformed; a file without a version resource gives 0x80070715 (or 0x80070714); the usual. */
ZO_API int32_t ZoProtector_GetDriverFileVersion(uint32_t* major, uint32_t* minor, uint32_t* build, uint32_t* revision);

/* Puts a newer driver file in the place of the configured one. The running driver is left alone; the new file is loaded
 * when the service is next started. A new file whose version is not higher changes nothing and is success.
 *
 *   newDriverPath     must have a version resource; an installed file without one is older than any
 *   upgraded          optional: 1 when the file was replaced, else 0
 *   replacedByDriver  optional: 1 when the driver had to do it, else 0
 *
 * The file is copied over; where it is in use, the old one is renamed into the temporary folder (or beside the new one)
 * and deleted at the next restart. Where even that is refused the library is initialised, and stays so; protection is
 * switched off for the moment, the driver replaces the file, and the master switch is set back to what it was.
 *
 * ZOP_E_INVALID_ARG for a null or empty path; ZOP_E_DRIVER_NOT_FOUND when either file is not there; the statuses of
 * ZoProtector_GetDriverFileVersion for the new file; those of ZoProtector_Initialize, ZoProtector_SetMasterEnabled and
 * of the driver's own replacement; 0x80070011 when the file is in use and the temporary folder is on another volume;
 * the usual. */
ZO_API int32_t ZoProtector_UpgradeDriver(const wchar_t* newDriverPath, uint32_t* upgraded, uint32_t* replacedByDriver);

/* ---- File operations that the driver performs
 * --------------------------------------------------------------------------- */

/* Has the driver copy a directory tree, for folders that this process may not read.
 *
 *   sourceDir, destinationDir         paths as everywhere
 *   option1, option2                  switches for the driver, sent as 0 or 1; their meaning is the driver's
 *   filesCopied, dirsCopied, skipped  each optional; set to 0 first, and filled as far as the driver tells even when
 *                                     the copy fails
 *
 * ZOP_E_INVALID_ARG for a null or empty path or one that is too long, ZOP_E_NOT_INITIALIZED, ZOP_E_FAILED for a drive
 * that does not exist, else what the driver answers. */
ZO_API int32_t ZoProtector_CopyDirectory(const wchar_t* sourceDir, const wchar_t* destinationDir, int32_t option1,
                                         uint32_t option2, uint32_t* filesCopied, uint32_t* dirsCopied,
                                         uint32_t* skipped);

/* Protects the driver's own file (the configured one; without a service that beside the executable), switches file
 * protection on, and protects the service's registry key with its subkeys. Rules that exist already are success, so it
 * may be called at every start. It does not initialise the library: ZOP_E_NOT_INITIALIZED. ZOP_E_FAILED when no path of
 * the driver file can be found; else the statuses of ZoProtector_AddFileProtectByPath, ZoProtector_EnableFileProtect
 * and ZoProtector_AddRegistryProtectByKey; what was done before a failing step stays done. */
ZO_API int32_t ZoProtector_AddDriverSelfProtect(void);

/* ---- Machine identity
 * ----------------------------------------------------------------------------------------------------- */

ZO_API int32_t ZoProtector_GetHardwareId(wchar_t* text, uint32_t capacity);
ZO_API int32_t ZoProtector_GetHardwareIdBytes(uint8_t* buffer, uint32_t bufferSize, uint32_t* bytesWritten);

#ifdef __cplusplus
}
#endif

#endif
