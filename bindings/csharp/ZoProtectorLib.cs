// ZoProtectorLib for .NET on 64-bit Windows, by P/Invoke. The public headers say what each function does. Compile with
// unsafe code enabled (/unsafe, AllowUnsafeBlocks).
//
//     ZoException.Check(Native.ZoProtector_Initialize());
//     ZoException.Check(Native.ZoProtector_AddFileProtectByFolder(@"C:\Suite", 1, "*.exe"));
//     Native.ZoProtector_GetStatus(out ZopStatus status);
//
// Delegates that are given to the library must be kept (GC.KeepAlive, or a field) as long as it may call them, and must
// not throw. In an options record they stand as Marshal.GetFunctionPointerForDelegate gives them, texts as
// Marshal.StringToHGlobalUni does; a text in a record is UTF-16 up to a zero: new string((char*)status.imagePath).

using System;
using System.Runtime.InteropServices;

namespace ZoProtectorLib
{
    /// <summary>Status is the number of the headers.</summary>
    public sealed class ZoException : Exception
    {
        public int Status { get; }

        public ZoException(int status) : base($"ZoProtectorLib failed with status 0x{status:X8}")
        {
            Status = status;
        }

        /// <summary>Throws for a failure.</summary>
        public static void Check(int status)
        {
            if (status < 0)
            {
                throw new ZoException(status);
            }
        }
    }

    public unsafe delegate void ZoSignerLogCallback(IntPtr context, uint level, char* message);
    public unsafe delegate int ZoSignerSealCallback(IntPtr context, char* relativePath, int* seal, int* applyToRest);
    public unsafe delegate void ZoCrashLogger(IntPtr context, int level, char* message);
    public unsafe delegate int ZoCrashBodyScrambler(
        IntPtr context, byte* @in, uint inLength, byte* @out, uint outCapacity, uint* outLength);

    [StructLayout(LayoutKind.Explicit, Size = 32)]
    public unsafe struct ZopStatus
    {
        [FieldOffset(0)] public uint flag1;
        [FieldOffset(4)] public uint count1;
        [FieldOffset(8)] public uint flag2;
        [FieldOffset(12)] public uint count2;
        [FieldOffset(16)] public uint flag3;
        [FieldOffset(20)] public uint count3;
        [FieldOffset(24)] public uint flag4;
        [FieldOffset(28)] public uint count4;
    }

    [StructLayout(LayoutKind.Explicit, Size = 8)]
    public unsafe struct ZopSignaturePolicy
    {
        [FieldOffset(0)] public byte mode;
        [FieldOffset(1)] public byte minLevel;
        [FieldOffset(2)] public fixed byte reserved[6];
    }

    [StructLayout(LayoutKind.Explicit, Size = 76)]
    public unsafe struct ZopStats
    {
        [FieldOffset(0)] public uint version;
        [FieldOffset(4)] public fixed uint counters[12];
        [FieldOffset(52)] public uint unsignedBypassAttempts;
        [FieldOffset(56)] public fixed uint moreCounters[5];
    }

    [StructLayout(LayoutKind.Explicit, Size = 562)]
    public unsafe struct ZopEventRecord
    {
        [FieldOffset(0)] public fixed byte bytes[562];
    }

    [StructLayout(LayoutKind.Explicit, Size = 1076)]
    public unsafe struct ZopRegistryEventRecord
    {
        [FieldOffset(0)] public fixed byte bytes[1076];
    }

    [StructLayout(LayoutKind.Explicit, Size = 1044)]
    public unsafe struct ZopProcessRuleEntry
    {
        [FieldOffset(0)] public fixed byte bytes[1044];
    }

    [StructLayout(LayoutKind.Explicit, Size = 2344)]
    public unsafe struct ZopFileRuleEntry
    {
        [FieldOffset(0)] public fixed byte bytes[2344];
    }

    [StructLayout(LayoutKind.Explicit, Size = 1028)]
    public unsafe struct ZopRegistryRuleEntry
    {
        [FieldOffset(0)] public fixed byte bytes[1028];
    }

    [StructLayout(LayoutKind.Explicit, Size = 1044)]
    public unsafe struct ZopDllWhitelistEntry
    {
        [FieldOffset(0)] public fixed byte bytes[1044];
    }

    [StructLayout(LayoutKind.Explicit, Size = 1200)]
    public unsafe struct ZoProtectorDriverStatus
    {
        [FieldOffset(0)] public uint state;
        [FieldOffset(4)] public uint startType;
        [FieldOffset(8)] public uint processId;
        [FieldOffset(12)] public uint instanceRegistered;
        [FieldOffset(16)] public fixed ushort imagePath[520];
        [FieldOffset(1056)] public fixed ushort altitude[64];
        [FieldOffset(1184)] public uint fileVersionMajor;
        [FieldOffset(1188)] public uint fileVersionMinor;
        [FieldOffset(1192)] public uint fileVersionBuild;
        [FieldOffset(1196)] public uint fileVersionRevision;
    }

    [StructLayout(LayoutKind.Explicit, Size = 72)]
    public unsafe struct ZoSignerSignOptions
    {
        [FieldOffset(0)] public IntPtr root;
        [FieldOffset(8)] public IntPtr manifest;
        [FieldOffset(16)] public IntPtr keystore;
        [FieldOffset(24)] public IntPtr keyBlob;
        [FieldOffset(32)] public uint keyBlobSize;
        [FieldOffset(36)] public uint sealMode;
        [FieldOffset(40)] public IntPtr sealCallback;
        [FieldOffset(48)] public IntPtr sealContext;
        [FieldOffset(56)] public IntPtr logCallback;
        [FieldOffset(64)] public IntPtr logContext;
    }

    [StructLayout(LayoutKind.Explicit, Size = 56)]
    public unsafe struct ZoSignerVerifyOptions
    {
        [FieldOffset(0)] public IntPtr root;
        [FieldOffset(8)] public IntPtr manifest;
        [FieldOffset(16)] public IntPtr keystore;
        [FieldOffset(24)] public IntPtr keyBlob;
        [FieldOffset(32)] public uint keyBlobSize;
        [FieldOffset(40)] public IntPtr logCallback;
        [FieldOffset(48)] public IntPtr logContext;
    }

    [StructLayout(LayoutKind.Explicit, Size = 48)]
    public unsafe struct ZoSignerSignResult
    {
        [FieldOffset(0)] public uint entries;
        [FieldOffset(4)] public uint signedOrAnchored;
        [FieldOffset(8)] public uint directories;
        [FieldOffset(12)] public uint sealedDirectories;
        [FieldOffset(16)] public fixed byte thumbprint[32];
    }

    [StructLayout(LayoutKind.Explicit, Size = 52)]
    public unsafe struct ZoSignerVerifyResult
    {
        [FieldOffset(0)] public uint ok;
        [FieldOffset(4)] public uint bad;
        [FieldOffset(8)] public uint missing;
        [FieldOffset(12)] public uint extra;
        [FieldOffset(16)] public uint directories;
        [FieldOffset(20)] public fixed byte thumbprint[32];
    }

    [StructLayout(LayoutKind.Explicit, Size = 72)]
    public unsafe struct ZoCrashReportConfig
    {
        [FieldOffset(0)] public IntPtr serverUrl;
        [FieldOffset(8)] public IntPtr appName;
        [FieldOffset(16)] public IntPtr appVersion;
        [FieldOffset(24)] public uint lcid;
        [FieldOffset(32)] public IntPtr minidumpDir;
        [FieldOffset(40)] public IntPtr compareFilePath;
        [FieldOffset(48)] public int uploadAll;
        [FieldOffset(56)] public ulong maxDumpBytes;
        [FieldOffset(64)] public uint networkWaitSeconds;
    }

    [StructLayout(LayoutKind.Explicit, Size = 2076)]
    public unsafe struct ZoCrashRunStats
    {
        [FieldOffset(0)] public uint dumpsFound;
        [FieldOffset(4)] public uint dumpsSelected;
        [FieldOffset(8)] public uint queriesAccepted;
        [FieldOffset(12)] public uint queriesAlreadyKnown;
        [FieldOffset(16)] public uint queriesFailed;
        [FieldOffset(20)] public uint uploadsSucceeded;
        [FieldOffset(24)] public uint uploadsFailed;
        [FieldOffset(28)] public fixed ushort matchedDrivers[1024];
    }

    /// <summary>Every function of the library; each returns a status.</summary>
    public static unsafe class Native
    {
        private const string Library = "ZoProtectorLib.dll";

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_Initialize();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_Uninitialize();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetVersion(out uint major, out uint minor, out uint patch);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetStatus(out ZopStatus status);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_SetMasterEnabled(int enable);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetMasterEnabled(out uint enabled);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ForceCrash();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddProcessProtectByPath(string path);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddProcessProtectByFolder(string folder, uint recursive);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveProcessProtect(string path);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllProcessProtect();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddFileProtectByPath(string path);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddFileProtectByFolder(string folder, byte recursive, string filter);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddFileProtectScoped(
            string path, int isFolder, int recursive, string filter, string scope, uint scopeIsFolder,
            uint scopeRecursive, uint exclusive);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveFileProtect(string path);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllFileProtect();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_EnableFileProtect(int enable);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddFileIgnoreProcess(string path, int isFolder, int recursive);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveFileIgnoreProcess(string path);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllFileIgnoreProcesses();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddRegistryProtectByKey(string key, uint recursive);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveRegistryProtect(string key);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllRegistryProtect();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddRegistryIgnoreProcess(string path, int isFolder, int recursive);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveRegistryIgnoreProcess(string path);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllRegistryIgnoreProcesses();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_SetSignaturePolicy(in ZopSignaturePolicy policy);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetSignaturePolicy(out ZopSignaturePolicy policy);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_QueryPidSignature(uint pid, out uint first, out uint second);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RefreshPidSignature(uint pid, out uint first, out uint second);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddSignatureOverride(uint pid);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveSignatureOverride(uint pid);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllSignatureOverrides();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_EnableDllLoadFilter(int enable);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddDllWhitelistFolder(string folder, uint recursive);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_RemoveDllWhitelistFolder(string folder);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ClearAllDllWhitelist();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ListProcessProtectRules(
            void* entries, uint capacity, out uint count, out uint total);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ListFileProtectRules(
            void* entries, uint capacity, out uint count, out uint total);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ListRegistryProtectRules(
            void* entries, uint capacity, out uint count, out uint total);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ListDllWhitelistRules(
            void* entries, uint capacity, out uint count, out uint total);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_DrainEvents(
            uint lastRead, void* events, uint capacity, out uint count, out uint dropped, out uint position);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_DrainRegistryEvents(
            uint lastRead, void* events, uint capacity, out uint count, out uint dropped, out uint position);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetStats(out ZopStats stats);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetUnsignedBypassAttempts(out uint attempts);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_InstallDriver(
            string sourcePath, uint startType, string altitude, uint allowUnload);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_StartDriver();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_StopDriver();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_UninstallDriver();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_ChangeDriverStartType(uint startType);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_QueryDriverStatus(out ZoProtectorDriverStatus status);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetDriverFileVersion(
            out uint major, out uint minor, out uint build, out uint revision);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_UpgradeDriver(
            string newDriverPath, out uint upgraded, out uint replacedByDriver);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_CopyDirectory(
            string sourceDir, string destinationDir, int option1, uint option2, out uint filesCopied,
            out uint dirsCopied, out uint skipped);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_AddDriverSelfProtect();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetHardwareId(char* text, uint capacity);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoProtector_GetHardwareIdBytes(byte* buffer, uint bufferSize, out uint bytesWritten);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoSigner_GenerateKeyPair(string keystore);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoSigner_GetPublicKeyThumbprint(string keystore, byte* thumbprint);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoSigner_SignDirectory(
            in ZoSignerSignOptions options, out ZoSignerSignResult result);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoSigner_VerifyDirectory(
            in ZoSignerVerifyOptions options, out ZoSignerVerifyResult result);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoSigner_VerifyDirectoryWithEmbeddedKey(
            in ZoSignerVerifyOptions options, out ZoSignerVerifyResult result);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_Initialize(in ZoCrashReportConfig config);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_Uninitialize();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_SetLogger(ZoCrashLogger logger, void* context);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_SetBodyScrambler(ZoCrashBodyScrambler scrambler, void* context);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_SetTargetDrivers(byte** names, uint count);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_NotifyNetworkOk();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_Cancel();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_ResetCancel();

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_Run(ref ZoCrashRunStats stats);

        [DllImport(Library, CharSet = CharSet.Unicode)]
        public static extern int ZoCrashReport_UploadSingleDump(string dumpPath, ref ZoCrashRunStats stats);
    }
}
