/* FROZEN: all declarations of the public headers of 1.0.0. Programs that were built against them must go on working
 * with every DLL of major version 1, so no declaration in this file ever changes. */
#include <stddef.h>
#include <stdint.h>

#ifndef ZO_API
#define ZO_API __declspec(dllimport)
#endif

#define ZOP_OK ((int32_t)0)
#define ZOP_E_NOT_INITIALIZED ((int32_t)0x80000001)
#define ZOP_E_DRIVER_NOT_FOUND ((int32_t)0x80000002)
#define ZOP_E_VERSION_MISMATCH ((int32_t)0x80000003)
#define ZOP_E_ACCESS_DENIED ((int32_t)0x80000004)
#define ZOP_E_QUOTA_EXCEEDED ((int32_t)0x80000005)
#define ZOP_E_ALREADY_EXISTS ((int32_t)0x80000006)
#define ZOP_E_NOT_FOUND ((int32_t)0x80000007)
#define ZOP_E_INVALID_ARG ((int32_t)0x80000008)
#define ZOP_E_FAILED ((int32_t)0x80000009)
#define ZOP_E_STANDARD_INVALID_ARG ((int32_t)0x80070057)
#define ZOP_STATUS_FROM_WIN32(error) ((int32_t)(0x80070000u | ((uint32_t)(error) & 0xFFFFu)))

typedef struct ZopStatus {
    uint32_t flag1, count1, flag2, count2, flag3, count3, flag4, count4;
} ZopStatus;
typedef struct ZopSignaturePolicy {
    uint8_t mode, minLevel, reserved[6];
} ZopSignaturePolicy;
typedef struct ZopStats {
    uint32_t version, counters[12], unsignedBypassAttempts, moreCounters[5];
} ZopStats;
typedef struct ZopEventRecord {
    uint8_t bytes[562];
} ZopEventRecord;
typedef struct ZopRegistryEventRecord {
    uint8_t bytes[1076];
} ZopRegistryEventRecord;
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
#define ZOP_DRIVER_NOT_INSTALLED 0u
#define ZOP_DRIVER_STOPPED 1u
#define ZOP_DRIVER_START_PENDING 2u
#define ZOP_DRIVER_STOP_PENDING 3u
#define ZOP_DRIVER_RUNNING 4u
#define ZOP_DRIVER_STATE_UNKNOWN 255u
#define ZOP_START_BOOT 0u
#define ZOP_START_SYSTEM 1u
#define ZOP_START_AUTO 2u
#define ZOP_START_DEMAND 3u
#define ZOP_START_DISABLED 4u
typedef struct ZoProtectorDriverStatus {
    uint32_t state, startType, processId, instanceRegistered;
    wchar_t imagePath[520], altitude[64];
    uint32_t fileVersionMajor, fileVersionMinor, fileVersionBuild, fileVersionRevision;
} ZoProtectorDriverStatus;

#define ZOSIG_E_THUMBPRINT_MISMATCH ((int32_t)0x80049101)
#define ZOSIG_E_VERIFY_FAILED ((int32_t)0x80049102)
#define ZOSIG_E_BAD_MANIFEST ((int32_t)0x80049103)
#define ZOSIG_E_NO_KEY ((int32_t)0x80049104)
#define ZOSIG_E_TAMPERED ((int32_t)0x80049106)
typedef uint32_t ZoSignerLogLevel;
#define ZOSIG_LOG_INFO ((ZoSignerLogLevel)0)
#define ZOSIG_LOG_WARNING ((ZoSignerLogLevel)1)
#define ZOSIG_LOG_ERROR ((ZoSignerLogLevel)2)
typedef void (*ZoSignerLogCallback)(void* context, uint32_t level, const wchar_t* message);
typedef uint32_t ZoSignerSealMode;
#define ZOSIG_SEAL_ALL ((ZoSignerSealMode)0)
#define ZOSIG_SEAL_NONE ((ZoSignerSealMode)1)
#define ZOSIG_SEAL_ASK ((ZoSignerSealMode)2)
typedef int32_t (*ZoSignerSealCallback)(void* context, const wchar_t* relativePath, int32_t* seal,
                                        int32_t* applyToRest);
typedef struct ZoSignerSignOptions {
    const wchar_t *root, *manifest, *keystore;
    const uint8_t* keyBlob;
    uint32_t keyBlobSize, sealMode;
    ZoSignerSealCallback sealCallback;
    void* sealContext;
    ZoSignerLogCallback logCallback;
    void* logContext;
} ZoSignerSignOptions;
typedef struct ZoSignerVerifyOptions {
    const wchar_t *root, *manifest, *keystore;
    const uint8_t* keyBlob;
    uint32_t keyBlobSize;
    ZoSignerLogCallback logCallback;
    void* logContext;
} ZoSignerVerifyOptions;
typedef struct ZoSignerSignResult {
    uint32_t entries, signedOrAnchored, directories, sealedDirectories;
    uint8_t thumbprint[32];
} ZoSignerSignResult;
typedef struct ZoSignerVerifyResult {
    uint32_t ok, bad, missing, extra, directories;
    uint8_t thumbprint[32];
} ZoSignerVerifyResult;

#define ZOCRASH_LOG_INFO ((int32_t)0)
#define ZOCRASH_LOG_WARNING ((int32_t)1)
#define ZOCRASH_LOG_ERROR ((int32_t)2)
typedef void (*ZoCrashLogger)(void* context, int32_t level, const wchar_t* message);
typedef int32_t (*ZoCrashBodyScrambler)(void* context, const uint8_t* in, uint32_t inLength, uint8_t* out,
                                        uint32_t outCapacity, uint32_t* outLength);
#define ZOCRASH_DEFAULT_RECORD L"ZoProtector\\crash_compare.dat"
typedef struct ZoCrashReportConfig {
    const wchar_t *serverUrl, *appName, *appVersion;
    uint32_t lcid;
    const wchar_t *minidumpDir, *compareFilePath;
    int32_t uploadAll;
    uint64_t maxDumpBytes;
    uint32_t networkWaitSeconds;
} ZoCrashReportConfig;
typedef struct ZoCrashRunStats {
    uint32_t dumpsFound, dumpsSelected, queriesAccepted, queriesAlreadyKnown, queriesFailed;
    uint32_t uploadsSucceeded, uploadsFailed;
    wchar_t matchedDrivers[1024];
} ZoCrashRunStats;

/* Functions of one signature are declared together. */
typedef int32_t NoArguments(void);
ZO_API NoArguments ZoProtector_Initialize, ZoProtector_Uninitialize, ZoProtector_ForceCrash,
    ZoProtector_ClearAllProcessProtect, ZoProtector_ClearAllFileProtect, ZoProtector_ClearAllFileIgnoreProcesses,
    ZoProtector_ClearAllRegistryProtect, ZoProtector_ClearAllRegistryIgnoreProcesses,
    ZoProtector_ClearAllSignatureOverrides, ZoProtector_ClearAllDllWhitelist, ZoProtector_StartDriver,
    ZoProtector_StopDriver, ZoProtector_UninstallDriver, ZoProtector_AddDriverSelfProtect, ZoCrashReport_Uninitialize,
    ZoCrashReport_NotifyNetworkOk, ZoCrashReport_Cancel, ZoCrashReport_ResetCancel;
typedef int32_t TakesSwitch(int32_t enable);
ZO_API TakesSwitch ZoProtector_SetMasterEnabled, ZoProtector_EnableFileProtect, ZoProtector_EnableDllLoadFilter;
typedef int32_t GivesNumber(uint32_t* number);
ZO_API GivesNumber ZoProtector_GetMasterEnabled, ZoProtector_GetUnsignedBypassAttempts;
typedef int32_t TakesName(const wchar_t* name);
ZO_API TakesName ZoProtector_AddProcessProtectByPath, ZoProtector_RemoveProcessProtect,
    ZoProtector_AddFileProtectByPath, ZoProtector_RemoveFileProtect, ZoProtector_RemoveFileIgnoreProcess,
    ZoProtector_RemoveRegistryProtect, ZoProtector_RemoveRegistryIgnoreProcess, ZoProtector_RemoveDllWhitelistFolder,
    ZoSigner_GenerateKeyPair;
typedef int32_t TakesTree(const wchar_t* top, uint32_t recursive);
ZO_API TakesTree ZoProtector_AddProcessProtectByFolder, ZoProtector_AddRegistryProtectByKey,
    ZoProtector_AddDllWhitelistFolder;
typedef int32_t TakesProcesses(const wchar_t* path, int32_t isFolder, int32_t recursive);
ZO_API TakesProcesses ZoProtector_AddFileIgnoreProcess, ZoProtector_AddRegistryIgnoreProcess;
typedef int32_t JudgesProcess(uint32_t pid, uint32_t* first, uint32_t* second);
ZO_API JudgesProcess ZoProtector_QueryPidSignature, ZoProtector_RefreshPidSignature;
typedef int32_t TakesNumber(uint32_t number);
ZO_API TakesNumber ZoProtector_AddSignatureOverride, ZoProtector_RemoveSignatureOverride,
    ZoProtector_ChangeDriverStartType;
typedef int32_t ListsRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total);
ZO_API ListsRules ZoProtector_ListProcessProtectRules, ZoProtector_ListFileProtectRules,
    ZoProtector_ListRegistryProtectRules, ZoProtector_ListDllWhitelistRules;
typedef int32_t DrainsEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count, uint32_t* dropped,
                             uint32_t* position);
ZO_API DrainsEvents ZoProtector_DrainEvents, ZoProtector_DrainRegistryEvents;
typedef int32_t VerifiesFolder(const ZoSignerVerifyOptions* options, ZoSignerVerifyResult* result);
ZO_API VerifiesFolder ZoSigner_VerifyDirectory, ZoSigner_VerifyDirectoryWithEmbeddedKey;
ZO_API int32_t ZoProtector_GetVersion(uint32_t* major, uint32_t* minor, uint32_t* patch);
ZO_API int32_t ZoProtector_GetStatus(ZopStatus* status);
ZO_API int32_t ZoProtector_AddFileProtectByFolder(const wchar_t* folder, uint8_t recursive, const wchar_t* filter);
ZO_API int32_t ZoProtector_AddFileProtectScoped(const wchar_t* path, int32_t isFolder, int32_t recursive,
                                                const wchar_t* filter, const wchar_t* scope, uint32_t scopeIsFolder,
                                                uint32_t scopeRecursive, uint32_t exclusive);
ZO_API int32_t ZoProtector_SetSignaturePolicy(const ZopSignaturePolicy* policy);
ZO_API int32_t ZoProtector_GetSignaturePolicy(ZopSignaturePolicy* policy);
ZO_API int32_t ZoProtector_GetStats(ZopStats* stats);
ZO_API int32_t ZoProtector_InstallDriver(const wchar_t* sourcePath, uint32_t startType, const wchar_t* altitude,
                                         uint32_t allowUnload);
ZO_API int32_t ZoProtector_QueryDriverStatus(ZoProtectorDriverStatus* status);
ZO_API int32_t ZoProtector_GetDriverFileVersion(uint32_t* major, uint32_t* minor, uint32_t* build, uint32_t* revision);
ZO_API int32_t ZoProtector_UpgradeDriver(const wchar_t* newDriverPath, uint32_t* upgraded, uint32_t* replacedByDriver);
ZO_API int32_t ZoProtector_CopyDirectory(const wchar_t* sourceDir, const wchar_t* destinationDir, int32_t option1,
                                         uint32_t option2, uint32_t* filesCopied, uint32_t* dirsCopied,
                                         uint32_t* skipped);
ZO_API int32_t ZoProtector_GetHardwareId(wchar_t* text, uint32_t capacity);
ZO_API int32_t ZoProtector_GetHardwareIdBytes(uint8_t* buffer, uint32_t bufferSize, uint32_t* bytesWritten);
ZO_API int32_t ZoSigner_GetPublicKeyThumbprint(const wchar_t* keystore, uint8_t thumbprint[32]);
ZO_API int32_t ZoSigner_SignDirectory(const ZoSignerSignOptions* options, ZoSignerSignResult* result);
ZO_API int32_t ZoCrashReport_Initialize(const ZoCrashReportConfig* config);
ZO_API int32_t ZoCrashReport_SetLogger(ZoCrashLogger logger, void* context);
ZO_API int32_t ZoCrashReport_SetBodyScrambler(ZoCrashBodyScrambler scrambler, void* context);
ZO_API int32_t ZoCrashReport_SetTargetDrivers(const char* const* names, uint32_t count);
ZO_API int32_t ZoCrashReport_Run(ZoCrashRunStats* stats);
ZO_API int32_t ZoCrashReport_UploadSingleDump(const wchar_t* dumpPath, ZoCrashRunStats* stats);
