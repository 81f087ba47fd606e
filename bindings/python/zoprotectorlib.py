"""ZoProtectorLib for Python on 64-bit Windows, by ctypes. The public headers say what each function does.

    import ctypes
    from zoprotectorlib import ZoError, ZopStatus, load

    zo = load(r"C:\\Suite\\ZoProtectorLib.dll")
    zo.ZoProtector_Initialize()
    zo.ZoProtector_AddFileProtectByFolder(r"C:\\Suite", 1, "*.exe")
    status = ZopStatus()
    zo.ZoProtector_GetStatus(ctypes.byref(status))

Every function raises ZoError for a failure. Callbacks must be kept by their owner as long as the library may call them,
and must not raise: what one raises is printed and lost. On other systems this file can be imported, but not load.
"""

import ctypes
from ctypes import (POINTER, Structure, c_char_p, c_int32, c_uint8, c_uint16, c_uint32, c_uint64, c_void_p, c_wchar_p)

# x64 has one calling convention, so that the plain function type serves.
_CALLBACK = ctypes.CFUNCTYPE


def text(field):
    """The text of a record's UTF-16 field, up to its terminator."""
    units = bytes(field)
    end = next((at for at in range(0, len(units), 2) if units[at:at + 2] == b"\0\0"), len(units))
    return units[:end].decode("utf-16-le", "surrogatepass")


class ZoError(OSError):
    """status is the number of the headers, function the name of what failed."""

    def __init__(self, function, status):
        super().__init__(f"{function} failed with status 0x{status & 0xFFFFFFFF:08X}")
        self.function, self.status = function, status & 0xFFFFFFFF


ZoSignerLogCallback = _CALLBACK(None, c_void_p, c_uint32, c_wchar_p)
ZoSignerSealCallback = _CALLBACK(c_int32, c_void_p, c_wchar_p, POINTER(c_int32), POINTER(c_int32))
ZoCrashLogger = _CALLBACK(None, c_void_p, c_int32, c_wchar_p)
ZoCrashBodyScrambler = _CALLBACK(
    c_int32, c_void_p, POINTER(c_uint8), c_uint32, POINTER(c_uint8), c_uint32, POINTER(c_uint32))


class ZopStatus(Structure):
    _fields_ = [
        ("flag1", c_uint32), ("count1", c_uint32), ("flag2", c_uint32), ("count2", c_uint32),
        ("flag3", c_uint32), ("count3", c_uint32), ("flag4", c_uint32), ("count4", c_uint32)
    ]


class ZopSignaturePolicy(Structure):
    _fields_ = [
        ("mode", c_uint8), ("minLevel", c_uint8), ("reserved", c_uint8 * 6)
    ]


class ZopStats(Structure):
    _fields_ = [
        ("version", c_uint32), ("counters", c_uint32 * 12), ("unsignedBypassAttempts", c_uint32),
        ("moreCounters", c_uint32 * 5)
    ]


class ZopEventRecord(Structure):
    _fields_ = [
        ("bytes", c_uint8 * 562)
    ]


class ZopRegistryEventRecord(Structure):
    _fields_ = [
        ("bytes", c_uint8 * 1076)
    ]


class ZopProcessRuleEntry(Structure):
    _fields_ = [
        ("bytes", c_uint8 * 1044)
    ]


class ZopFileRuleEntry(Structure):
    _fields_ = [
        ("bytes", c_uint8 * 2344)
    ]


class ZopRegistryRuleEntry(Structure):
    _fields_ = [
        ("bytes", c_uint8 * 1028)
    ]


class ZopDllWhitelistEntry(Structure):
    _fields_ = [
        ("bytes", c_uint8 * 1044)
    ]


class ZoProtectorDriverStatus(Structure):
    _fields_ = [
        ("state", c_uint32), ("startType", c_uint32), ("processId", c_uint32),
        ("instanceRegistered", c_uint32), ("imagePath", c_uint16 * 520), ("altitude", c_uint16 * 64),
        ("fileVersionMajor", c_uint32), ("fileVersionMinor", c_uint32), ("fileVersionBuild", c_uint32),
        ("fileVersionRevision", c_uint32)
    ]


class ZoCrashReportConfig(Structure):
    _fields_ = [
        ("serverUrl", c_wchar_p), ("appName", c_wchar_p), ("appVersion", c_wchar_p), ("lcid", c_uint32),
        ("minidumpDir", c_wchar_p), ("compareFilePath", c_wchar_p), ("uploadAll", c_int32),
        ("maxDumpBytes", c_uint64), ("networkWaitSeconds", c_uint32)
    ]


class ZoCrashRunStats(Structure):
    _fields_ = [
        ("dumpsFound", c_uint32), ("dumpsSelected", c_uint32), ("queriesAccepted", c_uint32),
        ("queriesAlreadyKnown", c_uint32), ("queriesFailed", c_uint32), ("uploadsSucceeded", c_uint32),
        ("uploadsFailed", c_uint32), ("matchedDrivers", c_uint16 * 1024)
    ]


class ZoSignerSignOptions(Structure):
    _fields_ = [
        ("root", c_wchar_p), ("manifest", c_wchar_p), ("keystore", c_wchar_p), ("keyBlob", POINTER(c_uint8)),
        ("keyBlobSize", c_uint32), ("sealMode", c_uint32), ("sealCallback", ZoSignerSealCallback),
        ("sealContext", c_void_p), ("logCallback", ZoSignerLogCallback), ("logContext", c_void_p)
    ]


class ZoSignerVerifyOptions(Structure):
    _fields_ = [
        ("root", c_wchar_p), ("manifest", c_wchar_p), ("keystore", c_wchar_p), ("keyBlob", POINTER(c_uint8)),
        ("keyBlobSize", c_uint32), ("logCallback", ZoSignerLogCallback), ("logContext", c_void_p)
    ]


class ZoSignerSignResult(Structure):
    _fields_ = [
        ("entries", c_uint32), ("signedOrAnchored", c_uint32), ("directories", c_uint32),
        ("sealedDirectories", c_uint32), ("thumbprint", c_uint8 * 32)
    ]


class ZoSignerVerifyResult(Structure):
    _fields_ = [
        ("ok", c_uint32), ("bad", c_uint32), ("missing", c_uint32), ("extra", c_uint32),
        ("directories", c_uint32), ("thumbprint", c_uint8 * 32)
    ]

FUNCTIONS = {
    "ZoProtector_Initialize": [],
    "ZoProtector_Uninitialize": [],
    "ZoProtector_GetVersion": [POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_GetStatus": [POINTER(ZopStatus)],
    "ZoProtector_SetMasterEnabled": [c_int32],
    "ZoProtector_GetMasterEnabled": [POINTER(c_uint32)],
    "ZoProtector_ForceCrash": [],
    "ZoProtector_AddProcessProtectByPath": [c_wchar_p],
    "ZoProtector_AddProcessProtectByFolder": [c_wchar_p, c_uint32],
    "ZoProtector_RemoveProcessProtect": [c_wchar_p],
    "ZoProtector_ClearAllProcessProtect": [],
    "ZoProtector_AddFileProtectByPath": [c_wchar_p],
    "ZoProtector_AddFileProtectByFolder": [c_wchar_p, c_uint8, c_wchar_p],
    "ZoProtector_AddFileProtectScoped": [
        c_wchar_p, c_int32, c_int32, c_wchar_p, c_wchar_p, c_uint32, c_uint32, c_uint32],
    "ZoProtector_RemoveFileProtect": [c_wchar_p],
    "ZoProtector_ClearAllFileProtect": [],
    "ZoProtector_EnableFileProtect": [c_int32],
    "ZoProtector_AddFileIgnoreProcess": [c_wchar_p, c_int32, c_int32],
    "ZoProtector_RemoveFileIgnoreProcess": [c_wchar_p],
    "ZoProtector_ClearAllFileIgnoreProcesses": [],
    "ZoProtector_AddRegistryProtectByKey": [c_wchar_p, c_uint32],
    "ZoProtector_RemoveRegistryProtect": [c_wchar_p],
    "ZoProtector_ClearAllRegistryProtect": [],
    "ZoProtector_AddRegistryIgnoreProcess": [c_wchar_p, c_int32, c_int32],
    "ZoProtector_RemoveRegistryIgnoreProcess": [c_wchar_p],
    "ZoProtector_ClearAllRegistryIgnoreProcesses": [],
    "ZoProtector_SetSignaturePolicy": [POINTER(ZopSignaturePolicy)],
    "ZoProtector_GetSignaturePolicy": [POINTER(ZopSignaturePolicy)],
    "ZoProtector_QueryPidSignature": [c_uint32, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_RefreshPidSignature": [c_uint32, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_AddSignatureOverride": [c_uint32],
    "ZoProtector_RemoveSignatureOverride": [c_uint32],
    "ZoProtector_ClearAllSignatureOverrides": [],
    "ZoProtector_EnableDllLoadFilter": [c_int32],
    "ZoProtector_AddDllWhitelistFolder": [c_wchar_p, c_uint32],
    "ZoProtector_RemoveDllWhitelistFolder": [c_wchar_p],
    "ZoProtector_ClearAllDllWhitelist": [],
    "ZoProtector_ListProcessProtectRules": [c_void_p, c_uint32, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_ListFileProtectRules": [c_void_p, c_uint32, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_ListRegistryProtectRules": [c_void_p, c_uint32, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_ListDllWhitelistRules": [c_void_p, c_uint32, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_DrainEvents": [
        c_uint32, c_void_p, c_uint32, POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_DrainRegistryEvents": [
        c_uint32, c_void_p, c_uint32, POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_GetStats": [POINTER(ZopStats)],
    "ZoProtector_GetUnsignedBypassAttempts": [POINTER(c_uint32)],
    "ZoProtector_InstallDriver": [c_wchar_p, c_uint32, c_wchar_p, c_uint32],
    "ZoProtector_StartDriver": [],
    "ZoProtector_StopDriver": [],
    "ZoProtector_UninstallDriver": [],
    "ZoProtector_ChangeDriverStartType": [c_uint32],
    "ZoProtector_QueryDriverStatus": [POINTER(ZoProtectorDriverStatus)],
    "ZoProtector_GetDriverFileVersion": [POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_UpgradeDriver": [c_wchar_p, POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_CopyDirectory": [
        c_wchar_p, c_wchar_p, c_int32, c_uint32, POINTER(c_uint32), POINTER(c_uint32), POINTER(c_uint32)],
    "ZoProtector_AddDriverSelfProtect": [],
    "ZoProtector_GetHardwareId": [c_wchar_p, c_uint32],
    "ZoProtector_GetHardwareIdBytes": [POINTER(c_uint8), c_uint32, POINTER(c_uint32)],
    "ZoSigner_GenerateKeyPair": [c_wchar_p],
    "ZoSigner_GetPublicKeyThumbprint": [c_wchar_p, POINTER(c_uint8)],
    "ZoSigner_SignDirectory": [POINTER(ZoSignerSignOptions), POINTER(ZoSignerSignResult)],
    "ZoSigner_VerifyDirectory": [POINTER(ZoSignerVerifyOptions), POINTER(ZoSignerVerifyResult)],
    "ZoSigner_VerifyDirectoryWithEmbeddedKey": [POINTER(ZoSignerVerifyOptions), POINTER(ZoSignerVerifyResult)],
    "ZoCrashReport_Initialize": [POINTER(ZoCrashReportConfig)],
    "ZoCrashReport_Uninitialize": [],
    "ZoCrashReport_SetLogger": [ZoCrashLogger, c_void_p],
    "ZoCrashReport_SetBodyScrambler": [ZoCrashBodyScrambler, c_void_p],
    "ZoCrashReport_SetTargetDrivers": [POINTER(c_char_p), c_uint32],
    "ZoCrashReport_NotifyNetworkOk": [],
    "ZoCrashReport_Cancel": [],
    "ZoCrashReport_ResetCancel": [],
    "ZoCrashReport_Run": [POINTER(ZoCrashRunStats)],
    "ZoCrashReport_UploadSingleDump": [c_wchar_p, POINTER(ZoCrashRunStats)],
}


def load(path="ZoProtectorLib.dll"):
    """The library with the types of all its functions set."""
    library = ctypes.CDLL(path)

    def raise_failure(status, function, arguments):
        if status < 0:
            raise ZoError(function.__name__, status)
        return status

    for name, arguments in FUNCTIONS.items():
        function = getattr(library, name)
        function.argtypes, function.restype, function.errcheck = arguments, c_int32, raise_failure
    return library
