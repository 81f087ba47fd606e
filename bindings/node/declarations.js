'use strict';

// The interface as data: every record, callback and function of the public headers, in their order. A test compares it
// with the headers.

// Text is 'char16_t*' in a record or an argument; an inline text is [type, length].
const records = {
    ZopStatus: {
        flag1: 'uint32_t', count1: 'uint32_t', flag2: 'uint32_t', count2: 'uint32_t',
        flag3: 'uint32_t', count3: 'uint32_t', flag4: 'uint32_t', count4: 'uint32_t',
    },
    ZopSignaturePolicy: { mode: 'uint8_t', minLevel: 'uint8_t', reserved: ['uint8_t', 6] },
    ZopStats: {
        version: 'uint32_t', counters: ['uint32_t', 12], unsignedBypassAttempts: 'uint32_t',
        moreCounters: ['uint32_t', 5],
    },
    ZopEventRecord: { bytes: ['uint8_t', 562] },
    ZopRegistryEventRecord: { bytes: ['uint8_t', 1076] },
    ZopProcessRuleEntry: { bytes: ['uint8_t', 1044] },
    ZopFileRuleEntry: { bytes: ['uint8_t', 2344] },
    ZopRegistryRuleEntry: { bytes: ['uint8_t', 1028] },
    ZopDllWhitelistEntry: { bytes: ['uint8_t', 1044] },
    ZoProtectorDriverStatus: {
        state: 'uint32_t', startType: 'uint32_t', processId: 'uint32_t', instanceRegistered: 'uint32_t',
        imagePath: ['char16_t', 520], altitude: ['char16_t', 64],
        fileVersionMajor: 'uint32_t', fileVersionMinor: 'uint32_t', fileVersionBuild: 'uint32_t',
        fileVersionRevision: 'uint32_t',
    },
    ZoSignerSignOptions: {
        root: 'char16_t*', manifest: 'char16_t*', keystore: 'char16_t*', keyBlob: 'uint8_t*', keyBlobSize: 'uint32_t',
        sealMode: 'uint32_t', sealCallback: 'ZoSignerSealCallback', sealContext: 'void*',
        logCallback: 'ZoSignerLogCallback', logContext: 'void*',
    },
    ZoSignerVerifyOptions: {
        root: 'char16_t*', manifest: 'char16_t*', keystore: 'char16_t*', keyBlob: 'uint8_t*', keyBlobSize: 'uint32_t',
        logCallback: 'ZoSignerLogCallback', logContext: 'void*',
    },
    ZoSignerSignResult: {
        entries: 'uint32_t', signedOrAnchored: 'uint32_t', directories: 'uint32_t', sealedDirectories: 'uint32_t',
        thumbprint: ['uint8_t', 32],
    },
    ZoSignerVerifyResult: {
        ok: 'uint32_t', bad: 'uint32_t', missing: 'uint32_t', extra: 'uint32_t', directories: 'uint32_t',
        thumbprint: ['uint8_t', 32],
    },
    ZoCrashReportConfig: {
        serverUrl: 'char16_t*', appName: 'char16_t*', appVersion: 'char16_t*', lcid: 'uint32_t',
        minidumpDir: 'char16_t*', compareFilePath: 'char16_t*', uploadAll: 'int32_t', maxDumpBytes: 'uint64_t',
        networkWaitSeconds: 'uint32_t',
    },
    ZoCrashRunStats: {
        dumpsFound: 'uint32_t', dumpsSelected: 'uint32_t', queriesAccepted: 'uint32_t',
        queriesAlreadyKnown: 'uint32_t', queriesFailed: 'uint32_t', uploadsSucceeded: 'uint32_t',
        uploadsFailed: 'uint32_t', matchedDrivers: ['char16_t', 1024],
    },
};

const callbacks = {
    ZoSignerLogCallback: 'void (void* context, uint32_t level, char16_t* message)',
    ZoSignerSealCallback:
        'int32_t (void* context, char16_t* relativePath, int32_t* seal, int32_t* applyToRest)',
    ZoCrashLogger: 'void (void* context, int32_t level, char16_t* message)',
    ZoCrashBodyScrambler: 'int32_t (void* context, uint8_t* in, uint32_t inLength, uint8_t* out, ' +
        'uint32_t outCapacity, uint32_t* outLength)',
};

// The arguments of each function; every one returns a status. 'out' is filled by the library, 'buffer' is the caller's
// memory.
const functions = {
    ZoProtector_Initialize: '',
    ZoProtector_Uninitialize: '',
    ZoProtector_GetVersion: 'out uint32_t* major, out uint32_t* minor, out uint32_t* patch',
    ZoProtector_GetStatus: 'out ZopStatus* status',
    ZoProtector_SetMasterEnabled: 'int32_t enable',
    ZoProtector_GetMasterEnabled: 'out uint32_t* enabled',
    ZoProtector_ForceCrash: '',
    ZoProtector_AddProcessProtectByPath: 'char16_t* path',
    ZoProtector_AddProcessProtectByFolder: 'char16_t* folder, uint32_t recursive',
    ZoProtector_RemoveProcessProtect: 'char16_t* path',
    ZoProtector_ClearAllProcessProtect: '',
    ZoProtector_AddFileProtectByPath: 'char16_t* path',
    ZoProtector_AddFileProtectByFolder: 'char16_t* folder, uint8_t recursive, char16_t* filter',
    ZoProtector_AddFileProtectScoped: 'char16_t* path, int32_t isFolder, int32_t recursive, char16_t* filter, ' +
        'char16_t* scope, uint32_t scopeIsFolder, uint32_t scopeRecursive, uint32_t exclusive',
    ZoProtector_RemoveFileProtect: 'char16_t* path',
    ZoProtector_ClearAllFileProtect: '',
    ZoProtector_EnableFileProtect: 'int32_t enable',
    ZoProtector_AddFileIgnoreProcess: 'char16_t* path, int32_t isFolder, int32_t recursive',
    ZoProtector_RemoveFileIgnoreProcess: 'char16_t* path',
    ZoProtector_ClearAllFileIgnoreProcesses: '',
    ZoProtector_AddRegistryProtectByKey: 'char16_t* key, uint32_t recursive',
    ZoProtector_RemoveRegistryProtect: 'char16_t* key',
    ZoProtector_ClearAllRegistryProtect: '',
    ZoProtector_AddRegistryIgnoreProcess: 'char16_t* path, int32_t isFolder, int32_t recursive',
    ZoProtector_RemoveRegistryIgnoreProcess: 'char16_t* path',
    ZoProtector_ClearAllRegistryIgnoreProcesses: '',
    ZoProtector_SetSignaturePolicy: 'ZopSignaturePolicy* policy',
    ZoProtector_GetSignaturePolicy: 'out ZopSignaturePolicy* policy',
    ZoProtector_QueryPidSignature: 'uint32_t pid, out uint32_t* first, out uint32_t* second',
    ZoProtector_RefreshPidSignature: 'uint32_t pid, out uint32_t* first, out uint32_t* second',
    ZoProtector_AddSignatureOverride: 'uint32_t pid',
    ZoProtector_RemoveSignatureOverride: 'uint32_t pid',
    ZoProtector_ClearAllSignatureOverrides: '',
    ZoProtector_EnableDllLoadFilter: 'int32_t enable',
    ZoProtector_AddDllWhitelistFolder: 'char16_t* folder, uint32_t recursive',
    ZoProtector_RemoveDllWhitelistFolder: 'char16_t* folder',
    ZoProtector_ClearAllDllWhitelist: '',
    ZoProtector_ListProcessProtectRules:
        'buffer void* entries, uint32_t capacity, out uint32_t* count, out uint32_t* total',
    ZoProtector_ListFileProtectRules:
        'buffer void* entries, uint32_t capacity, out uint32_t* count, out uint32_t* total',
    ZoProtector_ListRegistryProtectRules:
        'buffer void* entries, uint32_t capacity, out uint32_t* count, out uint32_t* total',
    ZoProtector_ListDllWhitelistRules:
        'buffer void* entries, uint32_t capacity, out uint32_t* count, out uint32_t* total',
    ZoProtector_DrainEvents: 'uint32_t lastRead, buffer void* events, uint32_t capacity, out uint32_t* count, ' +
        'out uint32_t* dropped, out uint32_t* position',
    ZoProtector_DrainRegistryEvents: 'uint32_t lastRead, buffer void* events, uint32_t capacity, ' +
        'out uint32_t* count, out uint32_t* dropped, out uint32_t* position',
    ZoProtector_GetStats: 'out ZopStats* stats',
    ZoProtector_GetUnsignedBypassAttempts: 'out uint32_t* attempts',
    ZoProtector_InstallDriver: 'char16_t* sourcePath, uint32_t startType, char16_t* altitude, uint32_t allowUnload',
    ZoProtector_StartDriver: '',
    ZoProtector_StopDriver: '',
    ZoProtector_UninstallDriver: '',
    ZoProtector_ChangeDriverStartType: 'uint32_t startType',
    ZoProtector_QueryDriverStatus: 'out ZoProtectorDriverStatus* status',
    ZoProtector_GetDriverFileVersion:
        'out uint32_t* major, out uint32_t* minor, out uint32_t* build, out uint32_t* revision',
    ZoProtector_UpgradeDriver: 'char16_t* newDriverPath, out uint32_t* upgraded, out uint32_t* replacedByDriver',
    ZoProtector_CopyDirectory: 'char16_t* sourceDir, char16_t* destinationDir, int32_t option1, uint32_t option2, ' +
        'out uint32_t* filesCopied, out uint32_t* dirsCopied, out uint32_t* skipped',
    ZoProtector_AddDriverSelfProtect: '',
    ZoProtector_GetHardwareId: 'buffer char16_t* text, uint32_t capacity',
    ZoProtector_GetHardwareIdBytes: 'buffer uint8_t* buffer, uint32_t bufferSize, out uint32_t* bytesWritten',
    ZoSigner_GenerateKeyPair: 'char16_t* keystore',
    ZoSigner_GetPublicKeyThumbprint: 'char16_t* keystore, buffer uint8_t* thumbprint',
    ZoSigner_SignDirectory: 'ZoSignerSignOptions* options, out ZoSignerSignResult* result',
    ZoSigner_VerifyDirectory: 'ZoSignerVerifyOptions* options, out ZoSignerVerifyResult* result',
    ZoSigner_VerifyDirectoryWithEmbeddedKey: 'ZoSignerVerifyOptions* options, out ZoSignerVerifyResult* result',
    ZoCrashReport_Initialize: 'ZoCrashReportConfig* config',
    ZoCrashReport_Uninitialize: '',
    ZoCrashReport_SetLogger: 'ZoCrashLogger logger, void* context',
    ZoCrashReport_SetBodyScrambler: 'ZoCrashBodyScrambler scrambler, void* context',
    ZoCrashReport_SetTargetDrivers: 'char** names, uint32_t count',
    ZoCrashReport_NotifyNetworkOk: '',
    ZoCrashReport_Cancel: '',
    ZoCrashReport_ResetCancel: '',
    ZoCrashReport_Run: 'out ZoCrashRunStats* stats',
    ZoCrashReport_UploadSingleDump: 'char16_t* dumpPath, out ZoCrashRunStats* stats',
};

const Status = Object.freeze({
    OK: 0,
    NOT_INITIALIZED: 0x80000001 | 0,
    DRIVER_NOT_FOUND: 0x80000002 | 0,
    VERSION_MISMATCH: 0x80000003 | 0,
    ACCESS_DENIED: 0x80000004 | 0,
    QUOTA_EXCEEDED: 0x80000005 | 0,
    ALREADY_EXISTS: 0x80000006 | 0,
    NOT_FOUND: 0x80000007 | 0,
    INVALID_ARG: 0x80000008 | 0,
    FAILED: 0x80000009 | 0,
    STANDARD_INVALID_ARG: 0x80070057 | 0,
    THUMBPRINT_MISMATCH: 0x80049101 | 0,
    VERIFY_FAILED: 0x80049102 | 0,
    BAD_MANIFEST: 0x80049103 | 0,
    NO_KEY: 0x80049104 | 0,
    TAMPERED: 0x80049106 | 0,
    CANCELLED: 0x80004004 | 0,
});

module.exports = { records, callbacks, functions, Status };
