// ZoProtectorLib for Node.js on Windows x64. The public headers say what each function does and when it fails; this
// file says how it is called from here.
//
//   const zo = require('zoprotectorlib').load('C:\\Suite\\ZoProtectorLib.dll');
//   zo.protector.initialize();
//   zo.protector.addFileProtectByFolder('C:\\Suite', 1, '*.exe');
//
// Every failure is a ZoError, thrown or as the rejection of the promise. Functions that wait for a service, for files or
// for the network return promises and leave the event loop free. An exception in a callback does not go through the
// library: it becomes the result of the call that ran the callback.

/** status is the number of the headers, code its name here ("NOT_FOUND") or the number in hexadecimal. */
export class ZoError extends Error {
    readonly functionName: string;
    readonly status: number;
    readonly code: string;
    /** What the function filled in before it failed, such as the counts of a folder that was changed. */
    readonly result?: unknown;
}

export const Status: Readonly<Record<
    'OK' | 'NOT_INITIALIZED' | 'DRIVER_NOT_FOUND' | 'VERSION_MISMATCH' | 'ACCESS_DENIED' | 'QUOTA_EXCEEDED' |
    'ALREADY_EXISTS' | 'NOT_FOUND' | 'INVALID_ARG' | 'FAILED' | 'STANDARD_INVALID_ARG' | 'THUMBPRINT_MISMATCH' |
    'VERIFY_FAILED' | 'BAD_MANIFEST' | 'NO_KEY' | 'TAMPERED' | 'CANCELLED', number>>;

export interface DriverStatus {
    state: number;
    startType: number;
    processId: number;
    instanceRegistered: number;
    imagePath: string;
    altitude: string;
    fileVersionMajor: number;
    fileVersionMinor: number;
    fileVersionBuild: number;
    fileVersionRevision: number;
}

export interface ProtectorStatus {
    flag1: number; count1: number;
    flag2: number; count2: number;
    flag3: number; count3: number;
    flag4: number; count4: number;
}

export interface SignaturePolicy {
    mode: number;
    minLevel: number;
}

export interface Stats {
    version: number;
    counters: Uint32Array;
    unsignedBypassAttempts: number;
    moreCounters: Uint32Array;
}

export interface Verdict { first: number; second: number }

/** records are the bytes of one event each; lost is how many were overwritten before this batch. */
export interface EventBatch {
    lost: number;
    records: Buffer[];
}

export interface EventOptions {
    /** Records of one poll; 256. */
    capacity?: number;
    /** Between polls that found all there was; 100. */
    intervalMs?: number;
    /** Ends the iteration. */
    signal?: AbortSignal;
}

export interface Protector {
    initialize(): void;
    uninitialize(): void;
    getVersion(): { major: number; minor: number; patch: number };
    getStatus(): ProtectorStatus;
    setMasterEnabled(enable: number): void;
    getMasterEnabled(): number;
    /** CRASHES THE SYSTEM on purpose. */
    forceCrash(): void;

    addProcessProtectByPath(path: string): void;
    addProcessProtectByFolder(folder: string, recursive: number): void;
    removeProcessProtect(path: string): void;
    clearAllProcessProtect(): void;
    listProcessProtectRules(): Buffer[];

    addFileProtectByPath(path: string): void;
    addFileProtectByFolder(folder: string, recursive: number, filter?: string | null): void;
    addFileProtectScoped(path: string, isFolder: number, recursive: number, filter: string | null, scope: string,
        scopeIsFolder: number, scopeRecursive: number, exclusive: number): void;
    removeFileProtect(path: string): void;
    clearAllFileProtect(): void;
    enableFileProtect(enable: number): void;
    addFileIgnoreProcess(path: string, isFolder: number, recursive: number): void;
    removeFileIgnoreProcess(path: string): void;
    clearAllFileIgnoreProcesses(): void;
    listFileProtectRules(): Buffer[];

    addRegistryProtectByKey(key: string, recursive: number): void;
    removeRegistryProtect(key: string): void;
    clearAllRegistryProtect(): void;
    addRegistryIgnoreProcess(path: string, isFolder: number, recursive: number): void;
    removeRegistryIgnoreProcess(path: string): void;
    clearAllRegistryIgnoreProcesses(): void;
    listRegistryProtectRules(): Buffer[];

    setSignaturePolicy(policy: SignaturePolicy): void;
    getSignaturePolicy(): SignaturePolicy & { reserved: Uint8Array };
    queryPidSignature(pid: number): Verdict;
    refreshPidSignature(pid: number): Verdict;
    addSignatureOverride(pid: number): void;
    removeSignatureOverride(pid: number): void;
    clearAllSignatureOverrides(): void;
    enableDllLoadFilter(enable: number): void;
    addDllWhitelistFolder(folder: string, recursive: number): void;
    removeDllWhitelistFolder(folder: string): void;
    clearAllDllWhitelist(): void;
    listDllWhitelistRules(): Buffer[];

    events(options?: EventOptions): AsyncGenerator<EventBatch, void, void>;
    registryEvents(options?: EventOptions): AsyncGenerator<EventBatch, void, void>;
    getStats(): Stats;
    getUnsignedBypassAttempts(): number;

    installDriver(sourcePath: string | null, startType: number, altitude: string | null, allowUnload: number):
        Promise<void>;
    startDriver(): Promise<void>;
    stopDriver(): Promise<void>;
    uninstallDriver(): Promise<void>;
    changeDriverStartType(startType: number): void;
    queryDriverStatus(): DriverStatus;
    getDriverFileVersion(): { major: number; minor: number; build: number; revision: number };
    upgradeDriver(newDriverPath: string): Promise<{ upgraded: number; replacedByDriver: number }>;
    copyDirectory(sourceDir: string, destinationDir: string, option1: number, option2: number):
        Promise<{ filesCopied: number; dirsCopied: number; skipped: number }>;
    addDriverSelfProtect(): void;

    getHardwareId(): string;
    getHardwareIdBytes(): Buffer;
}

export interface VerifyOptions {
    root: string;
    manifest: string;
    keystore?: string;
    keyBlob?: Uint8Array;
    /** level: 0 info, 1 warning, 2 error */
    onMessage?(level: number, message: string): void;
}

export interface SignOptions extends VerifyOptions {
    /** All folders are sealed unless this says none or onFolder decides. */
    seal?: 'all' | 'none';
    /** relativePath is "." for the root. An exception ends the signing, and no manifest is written. */
    onFolder?(relativePath: string): { seal?: boolean; applyToRest?: boolean };
}

export interface SignResult {
    entries: number;
    signedOrAnchored: number;
    directories: number;
    sealedDirectories: number;
    thumbprint: Uint8Array;
}

export interface VerifyResult {
    ok: number;
    bad: number;
    missing: number;
    extra: number;
    directories: number;
    thumbprint: Uint8Array;
}

export interface Signer {
    generateKeyPair(keystore: string): Promise<void>;
    getPublicKeyThumbprint(keystore: string): Buffer;
    signDirectory(options: SignOptions): Promise<SignResult>;
    /** Resolves when the folder is as it was sealed; a ZoError of VERIFY_FAILED has the counts as its result. */
    verifyDirectory(options: VerifyOptions): Promise<VerifyResult>;
    verifyDirectoryWithEmbeddedKey(options: VerifyOptions): Promise<VerifyResult>;
}

export interface CrashConfig {
    serverUrl?: string;
    appName?: string;
    appVersion?: string;
    lcid?: number;
    minidumpDir?: string;
    compareFilePath?: string;
    uploadAll?: boolean;
    maxDumpBytes?: number;
    networkWaitSeconds?: number;
}

export interface CrashStats {
    dumpsFound: number;
    dumpsSelected: number;
    queriesAccepted: number;
    queriesAlreadyKnown: number;
    queriesFailed: number;
    uploadsSucceeded: number;
    uploadsFailed: number;
    matchedDrivers: string;
}

export interface RunOptions {
    onMessage?(level: number, message: string): void;
    /** Turns a document into what is sent, in the place of the built-in scrambler, which cannot be had back: later runs
     * without this give their documents up. */
    onDocument?(document: Buffer): Uint8Array;
    /** Documents are sent as they are, from now on. */
    plain?: boolean;
}

/** One run at a time; the others may be called meanwhile. */
export interface CrashReporter {
    initialize(config?: CrashConfig): void;
    uninitialize(): void;
    setTargetDrivers(names: string[]): void;
    notifyNetworkOk(): void;
    cancel(): void;
    resetCancel(): void;
    run(options?: RunOptions): Promise<CrashStats>;
    uploadSingleDump(path: string, options?: RunOptions): Promise<CrashStats>;
}

export function load(path?: string): { protector: Protector; signer: Signer; crash: CrashReporter };
