#ifndef ZOPROTECTOR_H
#define ZOPROTECTOR_H

/* ZoProtectorLib: the driver SDK.
 *
 * Installs and controls the protection driver, gives it rules, and reads its events and counters. Plain C functions;
 * this header stands alone and can be used from C99, C++ and foreign-function interfaces.
 *
 * Conventions
 *   - Every function returns a status of zoprotector_status.h: 0 is success, negative is failure.
 *   - Strings are UTF-16 and zero-terminated. They stay the caller's; nothing is kept after the call.
 *   - Paths are ordinary Win32 paths of at most 259 characters in full form; relative ones are resolved against the
 *     current directory.
 *     The driver gets them as NT paths: a drive letter becomes its device, while a path without one (UNC, "\\?\",
 *     "\\.\") is passed on unchanged. docs/driver-interface.md lists the names that match nothing in the kernel, such
 *     as paths through links, 8.3 names and mapped drives.
 *   - Arguments are checked before the initialised state, so a null pointer gives ZOP_E_INVALID_ARG even when the
 *     library is not initialised.
 *
 * Threads
 *   Functions may be called from any thread. ZoProtector_Initialize and ZoProtector_Uninitialize exclude each other;
 *   all others may run at the same time, and the driver guards its own tables. But a process has one handle to the
 *   driver, and Windows carries out the requests on one such handle one after the other: while a long command runs,
 *   above all ZoProtector_CopyDirectory, every other command of the process waits, event polls included. A program that
 *   must not miss events copies in another process. ZoProtector_Uninitialize waits for the command in flight; commands
 *   that come after it fail (mostly with ZOP_E_NOT_INITIALIZED or ZOP_E_FAILED).
 *
 * Exceptions
 *   Functions report failures as a status, but they are not noexcept: when memory runs out, std::bad_alloc passes
 *   through them. Only a caller that was built with the same compiler and its runtime can catch it; in any other
 *   program it ends the process. What such a caller can do:
 *     - keep the capacity of lists and drains small: their buffers are the only large allocations. One of 16 MB holds
 *       15,000 registry events or 7,000 file rules.
 *     - otherwise only small blocks are allocated, for names and log lines. A program that must survive even that runs
 *       the calls in a process of its own.
 *   After std::bad_alloc no handle is lost, outputs are untouched, zeroed or complete, an upgrade has set the master
 *   switch back, and ZoProtector_Initialize may be called again. But log lines follow their command: the driver may
 *   have carried it out although the call did not return. Adding the rule again then gives ZOP_E_ALREADY_EXISTS,
 *   removing it again ZOP_E_NOT_FOUND. After a drain use the outputs when count or dropped is not 0: the next poll
 *   skips them.
 *
 * The diagnostic log
 *   Every change that succeeded, and some failures, write a line to ZoProtector\Logs\ZoProtector_YYYYMMDD.log below the
 *   temporary folder (to the current directory where there is none), in UTF-8, and to the debugger output. The log
 *   starts with the first ZoProtector_Initialize of the process, which also deletes files that were last written more
 *   than seven days ago. Others can read the file meanwhile, but not write to it: of two processes that log on the same
 *   day as the same user only the first reaches the file, the other one its debugger output. Where ZoProtector, Logs or
 *   the day's file is a link, a hard link included, lines go to the debugger only; nothing is deleted through a link. A
 *   service or another program with rights of its own should set TMP to a private folder before its first call: where
 *   the temporary folder is open to every user, others can read the log, or keep it from being written.
 *
 * The driver's answer
 *   Functions that send a command return, besides the statuses listed with them, "the driver's answer":
 *     ZOP_E_DRIVER_NOT_FOUND  the driver is gone (Win32 errors 2, 55)
 *     ZOP_E_ACCESS_DENIED     (5)
 *     ZOP_E_ALREADY_EXISTS    the table has this rule (52, 183)
 *     ZOP_E_INVALID_ARG       the driver does not accept the record (87)
 *     ZOP_E_NOT_FOUND         no such rule or process (1168)
 *     ZOP_E_QUOTA_EXCEEDED    the table is full (1816)
 *     ZOP_E_FAILED            any other error; logged with its number, except a buffer that is too small (122)
 *   A command that fails changes nothing in the library and logs no success. */

#include <stddef.h>
#include <stdint.h>

#include "zoprotector_status.h"

/* The version number is kept here only; the build reads it from here. */
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

/* ---- Records ---- */

/* From ZoProtector_GetStatus: four pairs of a flag (0 to 255, as the driver sent it) and a count. The driver defines
 * their meaning. */
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

/* The driver's policy for code signatures. The driver defines the values of mode and minLevel. 8 bytes. */
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

/* The driver defines the layout of events. */
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
    wchar_t imagePath[520];      /* as the service manager stores it: see ZoProtector_QueryDriverStatus */
    wchar_t altitude[64];
    uint32_t fileVersionMajor; /* of the installed driver file; four zeros when it cannot be read */
    uint32_t fileVersionMinor;
    uint32_t fileVersionBuild;
    uint32_t fileVersionRevision;
} ZoProtectorDriverStatus;

/* ---- Lifecycle, driver-wide switches ---- */

/* Opens the driver's control device and checks that the driver's major version is 1 (minor and patch do not matter).
 * The first call of a process also sets up the diagnostic log. When the library is initialised already, the call does
 * nothing and succeeds. Calls are not counted: one ZoProtector_Uninitialize is enough.
 *
 *   ZOP_E_DRIVER_NOT_FOUND  the device cannot be opened, whatever the reason: not installed, not started, no rights, or
 *                           open elsewhere. The log has the Win32 error.
 *   ZOP_E_VERSION_MISMATCH  another major version
 *   the driver's answer     to the question for its version
 *
 *     if (ZoProtector_Initialize() < 0) return;   // ZoProtector_QueryDriverStatus says why
 *     ZoProtector_AddFileProtectByFolder(L"C:\\Suite", 1, L"*.exe");
 *     ZoProtector_Uninitialize();
 */
ZO_API int32_t ZoProtector_Initialize(void);

/* Closes the device and the log file. The driver keeps its rules. Always ZOP_OK, also when there is nothing to close.
 * Waits for a command that another thread has in flight. A line that another thread writes to the log at that moment
 * may fail, or go to a file that has just been given the same handle value.
 *
 * Unloading the library, and the end of the process, do the same, but wait for no other thread: the last log line is
 * left out when another thread is inside the log, or when there is no memory for it. */
ZO_API int32_t ZoProtector_Uninitialize(void);

/* The running driver's version, untouched on failure. All three pointers are required (ZOP_E_INVALID_ARG).
 * ZOP_E_NOT_INITIALIZED while the device is closed; the driver's answer. */
ZO_API int32_t ZoProtector_GetVersion(uint32_t* major, uint32_t* minor, uint32_t* patch);

/* Untouched on failure. ZOP_E_INVALID_ARG for null, ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_GetStatus(ZopStatus* status);

/* Switches all protection on (any non-zero number) or off. ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_SetMasterEnabled(int32_t enable);

/* 1 or 0; 0 also on failure, and when the driver sends no byte. Null gives ZOP_E_STANDARD_INVALID_ARG here and nowhere
 * else. ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_GetMasterEnabled(uint32_t* enabled);

/* CRASHES THE SYSTEM on purpose, to test how crashes are handled. When the driver obeys, the call does not return and
 * everything that is not on disk is lost. ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_ForceCrash(void);

/* ---- Process rules ---- */

/* Processes are protected by the path of their image: one file, or all images of a folder. The driver defines what the
 * protection is and when a process matches.
 *
 * Statuses of all rule functions that take a path, in this order:
 *   ZOP_E_INVALID_ARG      null or empty
 *   ZOP_E_NOT_INITIALIZED
 *   ZOP_E_INVALID_ARG      longer than 259 characters in full form
 *   ZOP_E_FAILED           the drive does not exist (logged)
 *   the driver's answer
 * The path need not exist. */
ZO_API int32_t ZoProtector_AddProcessProtectByPath(const wchar_t* path);

/* recursive: 0 for the folder alone, 1 with its sub-folders. The driver gets the low byte of the number as it is, so
 * other numbers are not the same as 1, and 256 is 0. */
ZO_API int32_t ZoProtector_AddProcessProtectByFolder(const wchar_t* folder, uint32_t recursive);

/* Sends the path alone, for a file as for a folder; the driver decides which of its rules are removed. ZOP_E_NOT_FOUND
 * when there is none. */
ZO_API int32_t ZoProtector_RemoveProcessProtect(const wchar_t* path);

/* Removes every process rule. ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_ClearAllProcessProtect(void);

/* ---- File rules ---- */

/* Statuses as for process rules. Rules are in force while the file switch is on: ZoProtector_EnableFileProtect. */
ZO_API int32_t ZoProtector_AddFileProtectByPath(const wchar_t* path);

/*   recursive  0 or 1; the driver gets the byte as it is
 *   filter     a pattern for file names, whose syntax the driver defines; null or empty for every file. A filter of
 *              more than 127 characters is silently cut to 127. */
ZO_API int32_t ZoProtector_AddFileProtectByFolder(const wchar_t* folder, uint8_t recursive, const wchar_t* filter);

/* A rule for what the processes of a scope do. The driver defines the effect of scope and exclusive.
 *
 *   path, isFolder, recursive  what is protected
 *   filter                     as above
 *   scope                      image file or folder, required (null or empty gives ZOP_E_INVALID_ARG)
 *   scopeIsFolder, scopeRecursive, exclusive
 *
 * All five switches are sent as 0 or 1. */
ZO_API int32_t ZoProtector_AddFileProtectScoped(const wchar_t* path, int32_t isFolder, int32_t recursive,
                                                const wchar_t* filter, const wchar_t* scope, uint32_t scopeIsFolder,
                                                uint32_t scopeRecursive, uint32_t exclusive);

/* Sends the path alone, without filter and scope; the driver decides which of its rules are removed. ZOP_E_NOT_FOUND
 * when there is none. */
ZO_API int32_t ZoProtector_RemoveFileProtect(const wchar_t* path);

/* Removes every file rule; the file switch stays. ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_ClearAllFileProtect(void);

/* Switches file protection on (any non-zero number) or off; the rules stay. ZOP_E_NOT_INITIALIZED, the driver's
 * answer. */
ZO_API int32_t ZoProtector_EnableFileProtect(int32_t enable);

/* Processes that the file filter lets pass: an image file, or all images of a folder. Both switches are sent as 0 or 1.
 * This list cannot be read back. Statuses as for process rules. */
ZO_API int32_t ZoProtector_AddFileIgnoreProcess(const wchar_t* path, int32_t isFolder, int32_t recursive);
ZO_API int32_t ZoProtector_RemoveFileIgnoreProcess(const wchar_t* path);
ZO_API int32_t ZoProtector_ClearAllFileIgnoreProcesses(void);

/* ---- Registry rules ---- */

/* Keys begin with HKEY_LOCAL_MACHINE\, HKLM\, HKEY_CLASSES_ROOT\, HKCR\, HKEY_CURRENT_USER\, HKCU\, HKEY_USERS\, HKU\
 * (in any case) or with \REGISTRY\, which is taken as a kernel name. HKEY_CLASSES_ROOT always means the machine's
 * classes. HKEY_CURRENT_USER means the user of the process, also on a thread that impersonates somebody: a service
 * protects the key of its own account. A kernel name may have 511 characters.
 *
 *   recursive  0 for the key alone, 1 with its subkeys; the driver gets the low byte of the number as it is
 *
 * ZOP_E_INVALID_ARG (null or empty), ZOP_E_NOT_INITIALIZED, ZOP_E_INVALID_ARG (unknown root, or too long), ZOP_E_FAILED
 * (the user's SID cannot be read), the driver's answer. */
ZO_API int32_t ZoProtector_AddRegistryProtectByKey(const wchar_t* key, uint32_t recursive);
ZO_API int32_t ZoProtector_RemoveRegistryProtect(const wchar_t* key);
ZO_API int32_t ZoProtector_ClearAllRegistryProtect(void);

/* Processes that the registry filter lets pass. These take paths of image files or folders; a key name would count as a
 * relative path. Otherwise like the list of the file filter. */
ZO_API int32_t ZoProtector_AddRegistryIgnoreProcess(const wchar_t* path, int32_t isFolder, int32_t recursive);
ZO_API int32_t ZoProtector_RemoveRegistryIgnoreProcess(const wchar_t* path);
ZO_API int32_t ZoProtector_ClearAllRegistryIgnoreProcesses(void);

/* ---- Signature policy, DLL load filter ---- */

/* mode and minLevel are sent, reserved is not. Null gives ZOP_E_INVALID_ARG; ZOP_E_NOT_INITIALIZED; the driver's
 * answer. */
ZO_API int32_t ZoProtector_SetSignaturePolicy(const ZopSignaturePolicy* policy);

/* Zeroed first. It stays zero on failure, except where the driver fails with a warning (an NTSTATUS 0x8...) and sends a
 * policy along: then it holds that policy. Statuses as above. */
ZO_API int32_t ZoProtector_GetSignaturePolicy(ZopSignaturePolicy* policy);

/* The driver's verdict on the image of a process, as two flags of 0 or 1 whose meaning the driver defines. Both are
 * zeroed first and stay 0 on failure, and when the driver's reply is too short (which is not a failure). Refreshing
 * makes the driver examine the image again. Either pointer null gives ZOP_E_INVALID_ARG; ZOP_E_NOT_INITIALIZED; the
 * driver's answer, ZOP_E_NOT_FOUND for a process that it does not know. */
ZO_API int32_t ZoProtector_QueryPidSignature(uint32_t pid, uint32_t* first, uint32_t* second);
ZO_API int32_t ZoProtector_RefreshPidSignature(uint32_t pid, uint32_t* first, uint32_t* second);

/* Exempts one process from the policy. Any number is sent; the driver checks it. Overrides cannot be read back.
 * ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_AddSignatureOverride(uint32_t pid);
ZO_API int32_t ZoProtector_RemoveSignatureOverride(uint32_t pid);
ZO_API int32_t ZoProtector_ClearAllSignatureOverrides(void);

/* 0 off, 1 on. The driver gets the low byte of the number as it is: 256 switches the filter off, though the log calls
 * it "Enabled". ZOP_E_NOT_INITIALIZED, the driver's answer. */
ZO_API int32_t ZoProtector_EnableDllLoadFilter(int32_t enable);

/* Folders from which modules may always be loaded. recursive as for process rules, statuses likewise. */
ZO_API int32_t ZoProtector_AddDllWhitelistFolder(const wchar_t* folder, uint32_t recursive);
ZO_API int32_t ZoProtector_RemoveDllWhitelistFolder(const wchar_t* folder);
ZO_API int32_t ZoProtector_ClearAllDllWhitelist(void);

/* ---- Rule lists ---- */

/* Read a table back: names come as the driver holds them, as NT paths and kernel key names.
 *
 *   entries   capacity entries of the table's type (ZopProcessRuleEntry, ZopFileRuleEntry, ZopRegistryRuleEntry,
 *             ZopDllWhitelistEntry); null only with capacity 0, which asks for the total alone
 *   capacity  in entries
 *   count     required: entries written; the rest of the array stays untouched
 *   total     optional: rules in the table
 *
 * Both outputs are zeroed first. A table that does not fit is not a failure: total is then greater than count, and the
 * log has a warning. The call allocates a buffer of the same size (std::bad_alloc).
 *
 * ZOP_E_INVALID_ARG (outputs untouched), ZOP_E_NOT_INITIALIZED, ZOP_E_FAILED when the driver's reply has no header, the
 * driver's answer.
 *
 *     uint32_t count, total;
 *     if (ZoProtector_ListFileProtectRules(NULL, 0, &count, &total) < 0) return;
 *     ZopFileRuleEntry* entries = calloc(total, sizeof *entries);
 *     ZoProtector_ListFileProtectRules(entries, total, &count, &total);   // total > count: the table has grown
 */
ZO_API int32_t ZoProtector_ListProcessProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API int32_t ZoProtector_ListFileProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API int32_t ZoProtector_ListRegistryProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API int32_t ZoProtector_ListDllWhitelistRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);

/* ---- Events and counters ---- */

/* Fetch the events since the last poll: process and file events (records of ZopEventRecord), registry events
 * (ZopRegistryEventRecord). The driver's rings overwrite events that are not fetched in time. The library remembers
 * nothing between polls: the caller keeps the position. Use one poller for each ring.
 *
 *   lastRead  0 at first, then the position from the last poll; 0 again after the driver was restarted or upgraded
 *   events    capacity records of the ring's type, required
 *   capacity  in records, from 1
 *   count     required: records written; the rest of the array stays untouched
 *   dropped   optional: events that were overwritten before this poll. Not a failure, but the log has a warning.
 *   position  may be null, but without it the caller cannot continue from here
 *
 * The outputs are zeroed first, so position is 0 on failure: keep the old one. A reply of the driver without a header
 * counts as a poll that found nothing, with all outputs 0: do not take its position either. The call allocates a buffer
 * of the same size as the array (std::bad_alloc). How often to poll and with what capacity: docs/events.md.
 *
 * ZOP_E_INVALID_ARG (outputs untouched), ZOP_E_NOT_INITIALIZED, the driver's answer.
 *
 *     uint32_t position = 0, count, dropped, next;
 *     for (;;) {
 *         if (ZoProtector_DrainEvents(position, events, 256, &count, &dropped, &next) >= 0) {
 *             if (count || dropped || next) position = next;   // all 0: the reply was too short
 *             use(events, count, dropped);
 *             if (count == 256) continue;   // there may be more
 *         }
 *         Sleep(100);
 *     }
 */
ZO_API int32_t ZoProtector_DrainEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count,
                                       uint32_t* dropped, uint32_t* position);
ZO_API int32_t ZoProtector_DrainRegistryEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count,
                                               uint32_t* dropped, uint32_t* position);

/* The driver's counters. An older driver sends a shorter block: that is a success, the rest is zero, and the log has a
 * warning. ZOP_E_INVALID_ARG for null and ZOP_E_NOT_INITIALIZED leave the block untouched. With the driver's answer it
 * is zero, except where the driver fails with a warning (an NTSTATUS 0x8...) and sends counters along. */
ZO_API int32_t ZoProtector_GetStats(ZopStats* stats);

/* One of these counters, which drivers have from statistics version 3 on; 0 on failure. Besides the statuses of
 * ZoProtector_GetStats: ZOP_E_VERSION_MISMATCH for an older version. */
ZO_API int32_t ZoProtector_GetUnsignedBypassAttempts(uint32_t* attempts);

/* ---- The driver as a service ---- */

/* These work through the service manager, the registry and the file system. Only ZoProtector_UninstallDriver (which
 * closes it) and ZoProtector_UpgradeDriver (which may open it) use the channel to the driver. They do not exclude each
 * other: two threads or processes that install or remove at the same time can find each other's work half done. They
 * write no lines of their own to the diagnostic log; the functions that they call write theirs.
 *
 * Common failures of all of them, "the usual" below:
 *   ZOP_E_DRIVER_NOT_FOUND  no such service, file or folder
 *   ZOP_E_ACCESS_DENIED     the caller lacks the rights (administrator, except for the queries)
 *   ZOP_E_INVALID_ARG       the system refused a parameter
 *   0x8007xxxx              any other Win32 error, ZOP_STATUS_FROM_WIN32(error); 0x8007007A where a path of the driver
 *                           does not fit in 260 characters */

/* Copies the driver file to System32\drivers\ZoProtectorDriver.sys, registers the service "ZoProtector" (a file-system
 * driver of the group "FSFilter Activity Monitor") and its minifilter instance. Does not start it. May be repeated: an
 * existing service is reconfigured and its instance rewritten.
 *
 *   sourcePath   the driver file, at most 259 characters. Null or empty: "ZoProtectorDriver.sys" in the folder of the
 *                executable of this process, which may differ from that of the library: a caller that keeps the driver
 *                in the library's folder passes the path.
 *   startType    ZOP_START_...; any number above 4 counts as ZOP_START_DEMAND
 *   altitude     of the minifilter, written as it is. Null or empty: "385100"
 *   allowUnload  non-zero lets the filter manager unload the driver
 *
 * An installed file of the same size counts as the same driver and is not overwritten, whatever its contents: to
 * install another build of the same size use ZoProtector_UpgradeDriver, or uninstall first. The copy is never
 * read-only, even when the source is.
 *
 * ZOP_E_INVALID_ARG (also for a longer sourcePath), ZOP_E_DRIVER_NOT_FOUND (also when there is no source file),
 * 0x80070430 while the service is marked for deletion, the usual. Steps before the one that fails are not undone. */
ZO_API int32_t ZoProtector_InstallDriver(const wchar_t* sourcePath, uint32_t startType, const wchar_t* altitude,
                                         uint32_t allowUnload);

/* Starts the service; a service that is running already is a success. Does not wait for the running state. The usual;
 * 0x80070422 when its start type is ZOP_START_DISABLED. */
ZO_API int32_t ZoProtector_StartDriver(void);

/* Stops the service and waits until it has stopped: half a second at least, about 15 seconds at most, then 0x8007041D
 * (it may still stop later). For a stopped service it succeeds at once. A driver does not unload while a handle to it
 * is open, so call ZoProtector_Uninitialize first. The usual. */
ZO_API int32_t ZoProtector_StopDriver(void);

/* Closes the channel (ZoProtector_Uninitialize), stops the service as above and ignores the result, and removes the
 * service, its minifilter instance and the driver file. It succeeds also when nothing was installed, and when the
 * driver file is in use and stays behind. A service that does not stop, or that another program holds open, disappears
 * after that ends. The usual; when the service cannot be opened or deleted, nothing further is removed. */
ZO_API int32_t ZoProtector_UninstallDriver(void);

/* Changes the start type and nothing else; any number above 4 counts as ZOP_START_DEMAND. The usual. */
ZO_API int32_t ZoProtector_ChangeDriverStartType(uint32_t startType);

/* Fills the caller's record. When the service is not installed, it succeeds with state ZOP_DRIVER_NOT_INSTALLED and
 * startType ZOP_START_DEMAND. A field that cannot be read keeps its initial value: state ZOP_DRIVER_STATE_UNKNOWN,
 * startType ZOP_START_DEMAND, everything else 0 or empty. An altitude of more than 63 characters reads as empty.
 * ZOP_E_INVALID_ARG for null, the usual.
 *
 * imagePath is the stored text, cut after 519 characters. For drivers that start at boot or come from an INF package it
 * may begin with "\??\" or "\SystemRoot\", or be relative to the Windows folder. The library resolves all of these
 * wherever it opens the driver's file or protects it.
 *
 *     ZoProtectorDriverStatus status;
 *     if (ZoProtector_QueryDriverStatus(&status) >= 0 && status.state == ZOP_DRIVER_STOPPED) ZoProtector_StartDriver();
 */
ZO_API int32_t ZoProtector_QueryDriverStatus(ZoProtectorDriverStatus* status);

/* The version of the driver file that the service is configured with; without a service, of the one in the folder of
 * the executable. For the version of the running driver see ZoProtector_GetVersion. All four pointers are
 * required and are set to 0 first. ZOP_E_INVALID_ARG for null; ZOP_E_DRIVER_NOT_FOUND when there is no file or its
 * version resource is malformed; a file without a version resource gives 0x80070715 (or 0x80070714); the usual. */
ZO_API int32_t ZoProtector_GetDriverFileVersion(uint32_t* major, uint32_t* minor, uint32_t* build, uint32_t* revision);

/* Replaces the configured driver file by a newer one. The running driver keeps running; the new file is loaded when the
 * service is next started. A new file whose version is not higher changes nothing and is a success.
 *
 *   newDriverPath     must have a version resource; an installed file without one is older than any
 *   upgraded          optional: 1 when the file was replaced, else 0
 *   replacedByDriver  optional: 1 when the driver replaced it, else 0
 *
 * The file is copied over the installed one. Where that is in use, it is renamed into the temporary folder (or within
 * its own folder) and deleted at the next restart. Where even that is refused, the library is initialised and stays so,
 * protection is switched off, the driver replaces the file, and the master switch is set back to what it was.
 *
 * Afterwards ask for the master switch (ZoProtector_GetMasterEnabled) whenever replacedByDriver is 1, and whenever the
 * call failed or did not return: setting the switch back can fail without changing the result. Upgrades of one process
 * replace through the driver one after the other. The processes of a machine do not wait for each other: two upgrades
 * at once can leave protection off, so let only one process upgrade at a time, for example under a named mutex.
 *
 * ZOP_E_INVALID_ARG for a null or empty path; ZOP_E_DRIVER_NOT_FOUND when either file does not exist; the statuses of
 * ZoProtector_GetDriverFileVersion for the new file; those of ZoProtector_Initialize, ZoProtector_SetMasterEnabled and
 * of the driver's own replacement; 0x80070011 when the file is in use and the temporary folder is on another volume;
 * the usual. docs/upgrade.md says what is on disk after each failure. */
ZO_API int32_t ZoProtector_UpgradeDriver(const wchar_t* newDriverPath, uint32_t* upgraded, uint32_t* replacedByDriver);

/* ---- File operations that the driver performs ---- */

/* Has the driver copy a directory tree, for folders that this process may not read. Other commands of this process wait
 * until it is done.
 *
 *   sourceDir, destinationDir         paths as everywhere
 *   option1, option2                  switches, sent as 0 or 1; the driver defines their meaning
 *   filesCopied, dirsCopied, skipped  each optional; set to 0 first. Also set when the copy fails and the driver still
 *                                     sends its counters.
 *
 * ZOP_E_INVALID_ARG for a null or empty path or one that is too long, ZOP_E_NOT_INITIALIZED, ZOP_E_FAILED for a drive
 * that does not exist, the driver's answer. */
ZO_API int32_t ZoProtector_CopyDirectory(const wchar_t* sourceDir, const wchar_t* destinationDir, int32_t option1,
                                         uint32_t option2, uint32_t* filesCopied, uint32_t* dirsCopied,
                                         uint32_t* skipped);

/* Protects the driver's own file (the configured one; without a service, the one in the folder of the executable),
 * switches file protection on, and protects the service's registry key with its subkeys. Rules that exist already count
 * as success, so it may be called at every start. It does not initialise the library: ZOP_E_NOT_INITIALIZED.
 * ZOP_E_FAILED when no path of the driver file can be found; else the statuses of ZoProtector_AddFileProtectByPath,
 * ZoProtector_EnableFileProtect and ZoProtector_AddRegistryProtectByKey. Steps before the one that fails are not
 * undone. */
ZO_API int32_t ZoProtector_AddDriverSelfProtect(void);

/* ---- Machine identity ---- */

/* A digest of up to four identifiers of the machine: the system's SMBIOS UUID, the installation's machine GUID, the
 * processor's name, and the serial number of the first disk, which is the one that Windows calls \\.\PhysicalDrive0.
 * With several disks that number can go to another one: after a disk, a controller or a firmware setting was changed,
 * or when a removable disk was connected at start. The digest then changes, as it does when any source appears,
 * disappears or changes (another installation, a disk driver that hides serial numbers). Otherwise every call gives the
 * same digest, in every process that may read the same sources. Needs neither driver nor initialisation.
 *
 *   text      64 upper-case hexadecimal digits and a terminator
 *   capacity  of text, in characters, at least 65
 *
 * ZOP_E_INVALID_ARG (null, or too small); ZOP_E_FAILED when the machine has no identifier at all or the system's
 * cryptography fails. text is written on success only. */
ZO_API int32_t ZoProtector_GetHardwareId(wchar_t* text, uint32_t capacity);

/* The same digest as 32 bytes.
 *
 *   bufferSize    in bytes, at least 32
 *   bytesWritten  required; 0 on failure, 32 on success
 */
ZO_API int32_t ZoProtector_GetHardwareIdBytes(uint8_t* buffer, uint32_t bufferSize, uint32_t* bytesWritten);

/* ---- For programs that load the library at run time ---- */

/* One pointer type for each function, called like it with "Fn" at the end: the type for the address that GetProcAddress
 * gives for that name. Define ZO_NO_IMPORT before this header is included, and no import library is needed. These
 * declarations use no macro, so that generators of bindings can read them.
 *
 *     HMODULE library = LoadLibraryExW(L"C:\\Suite\\ZoProtectorLib.dll", NULL, LOAD_LIBRARY_SEARCH_SYSTEM32);
 *     ZoProtector_InitializeFn initialize =
 *         (ZoProtector_InitializeFn)(void*)GetProcAddress(library, "ZoProtector_Initialize");
 *
 * The library has no threads of its own. Free it when no call is inside it, and never from one of its callbacks.
 * Freeing it closes what is open, so ZoProtector_Uninitialize need not be called first.
 *
 * Under the loader lock (in DllMain, in a TLS callback, in constructors and destructors of a DLL's static objects) call
 * no function of the library, with these exceptions, none of which waits for the loader lock:
 *   - ZoProtector_Uninitialize, while no other thread is inside ZoProtector_Initialize
 *   - ZoCrashReport_Cancel, ZoCrashReport_ResetCancel and ZoCrashReport_NotifyNetworkOk, once an earlier call of any
 *     ZoCrashReport_ function has returned: the first one sets the reporter up, and that may load system libraries */
typedef int32_t (*ZoProtector_InitializeFn)(void);
typedef int32_t (*ZoProtector_UninitializeFn)(void);
typedef int32_t (*ZoProtector_GetVersionFn)(uint32_t* major, uint32_t* minor, uint32_t* patch);
typedef int32_t (*ZoProtector_GetStatusFn)(ZopStatus* status);
typedef int32_t (*ZoProtector_SetMasterEnabledFn)(int32_t enable);
typedef int32_t (*ZoProtector_GetMasterEnabledFn)(uint32_t* enabled);
typedef int32_t (*ZoProtector_ForceCrashFn)(void);
typedef int32_t (*ZoProtector_AddProcessProtectByPathFn)(const wchar_t* path);
typedef int32_t (*ZoProtector_AddProcessProtectByFolderFn)(const wchar_t* folder, uint32_t recursive);
typedef int32_t (*ZoProtector_RemoveProcessProtectFn)(const wchar_t* path);
typedef int32_t (*ZoProtector_ClearAllProcessProtectFn)(void);
typedef int32_t (*ZoProtector_AddFileProtectByPathFn)(const wchar_t* path);
typedef int32_t (*ZoProtector_AddFileProtectByFolderFn)(const wchar_t* folder, uint8_t recursive,
                                                        const wchar_t* filter);
typedef int32_t (*ZoProtector_AddFileProtectScopedFn)(const wchar_t* path, int32_t isFolder, int32_t recursive,
                                                      const wchar_t* filter, const wchar_t* scope,
                                                      uint32_t scopeIsFolder, uint32_t scopeRecursive,
                                                      uint32_t exclusive);
typedef int32_t (*ZoProtector_RemoveFileProtectFn)(const wchar_t* path);
typedef int32_t (*ZoProtector_ClearAllFileProtectFn)(void);
typedef int32_t (*ZoProtector_EnableFileProtectFn)(int32_t enable);
typedef int32_t (*ZoProtector_AddFileIgnoreProcessFn)(const wchar_t* path, int32_t isFolder, int32_t recursive);
typedef int32_t (*ZoProtector_RemoveFileIgnoreProcessFn)(const wchar_t* path);
typedef int32_t (*ZoProtector_ClearAllFileIgnoreProcessesFn)(void);
typedef int32_t (*ZoProtector_AddRegistryProtectByKeyFn)(const wchar_t* key, uint32_t recursive);
typedef int32_t (*ZoProtector_RemoveRegistryProtectFn)(const wchar_t* key);
typedef int32_t (*ZoProtector_ClearAllRegistryProtectFn)(void);
typedef int32_t (*ZoProtector_AddRegistryIgnoreProcessFn)(const wchar_t* path, int32_t isFolder, int32_t recursive);
typedef int32_t (*ZoProtector_RemoveRegistryIgnoreProcessFn)(const wchar_t* path);
typedef int32_t (*ZoProtector_ClearAllRegistryIgnoreProcessesFn)(void);
typedef int32_t (*ZoProtector_SetSignaturePolicyFn)(const ZopSignaturePolicy* policy);
typedef int32_t (*ZoProtector_GetSignaturePolicyFn)(ZopSignaturePolicy* policy);
typedef int32_t (*ZoProtector_QueryPidSignatureFn)(uint32_t pid, uint32_t* first, uint32_t* second);
typedef int32_t (*ZoProtector_RefreshPidSignatureFn)(uint32_t pid, uint32_t* first, uint32_t* second);
typedef int32_t (*ZoProtector_AddSignatureOverrideFn)(uint32_t pid);
typedef int32_t (*ZoProtector_RemoveSignatureOverrideFn)(uint32_t pid);
typedef int32_t (*ZoProtector_ClearAllSignatureOverridesFn)(void);
typedef int32_t (*ZoProtector_EnableDllLoadFilterFn)(int32_t enable);
typedef int32_t (*ZoProtector_AddDllWhitelistFolderFn)(const wchar_t* folder, uint32_t recursive);
typedef int32_t (*ZoProtector_RemoveDllWhitelistFolderFn)(const wchar_t* folder);
typedef int32_t (*ZoProtector_ClearAllDllWhitelistFn)(void);
typedef int32_t (*ZoProtector_ListProcessProtectRulesFn)(void* entries, uint32_t capacity, uint32_t* count,
                                                         uint32_t* total);
typedef int32_t (*ZoProtector_ListFileProtectRulesFn)(void* entries, uint32_t capacity, uint32_t* count,
                                                      uint32_t* total);
typedef int32_t (*ZoProtector_ListRegistryProtectRulesFn)(void* entries, uint32_t capacity, uint32_t* count,
                                                          uint32_t* total);
typedef int32_t (*ZoProtector_ListDllWhitelistRulesFn)(void* entries, uint32_t capacity, uint32_t* count,
                                                       uint32_t* total);
typedef int32_t (*ZoProtector_DrainEventsFn)(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count,
                                             uint32_t* dropped, uint32_t* position);
typedef int32_t (*ZoProtector_DrainRegistryEventsFn)(uint32_t lastRead, void* events, uint32_t capacity,
                                                     uint32_t* count, uint32_t* dropped, uint32_t* position);
typedef int32_t (*ZoProtector_GetStatsFn)(ZopStats* stats);
typedef int32_t (*ZoProtector_GetUnsignedBypassAttemptsFn)(uint32_t* attempts);
typedef int32_t (*ZoProtector_InstallDriverFn)(const wchar_t* sourcePath, uint32_t startType, const wchar_t* altitude,
                                               uint32_t allowUnload);
typedef int32_t (*ZoProtector_StartDriverFn)(void);
typedef int32_t (*ZoProtector_StopDriverFn)(void);
typedef int32_t (*ZoProtector_UninstallDriverFn)(void);
typedef int32_t (*ZoProtector_ChangeDriverStartTypeFn)(uint32_t startType);
typedef int32_t (*ZoProtector_QueryDriverStatusFn)(ZoProtectorDriverStatus* status);
typedef int32_t (*ZoProtector_GetDriverFileVersionFn)(uint32_t* major, uint32_t* minor, uint32_t* build,
                                                      uint32_t* revision);
typedef int32_t (*ZoProtector_UpgradeDriverFn)(const wchar_t* newDriverPath, uint32_t* upgraded,
                                               uint32_t* replacedByDriver);
typedef int32_t (*ZoProtector_CopyDirectoryFn)(const wchar_t* sourceDir, const wchar_t* destinationDir, int32_t option1,
                                               uint32_t option2, uint32_t* filesCopied, uint32_t* dirsCopied,
                                               uint32_t* skipped);
typedef int32_t (*ZoProtector_AddDriverSelfProtectFn)(void);
typedef int32_t (*ZoProtector_GetHardwareIdFn)(wchar_t* text, uint32_t capacity);
typedef int32_t (*ZoProtector_GetHardwareIdBytesFn)(uint8_t* buffer, uint32_t bufferSize, uint32_t* bytesWritten);

#ifdef __cplusplus
}
#endif

#endif
