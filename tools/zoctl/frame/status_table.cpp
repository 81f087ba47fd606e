#include "status_table.h"

#include "format.h"

namespace zoctl {

namespace {

constexpr StatusRow kRows[] = {
    {0x00000000, Subject::kAny, "S_OK", "It worked.", "Nothing needs to be done.", kExitDone},

    {0x80000001, Subject::kAny, "ZOP_E_NOT_INITIALIZED", "There is no open channel to the driver.",
     "Start the driver with \"zoctl driver start\" and try again.", kExitNoChannel},
    {0x80000002, Subject::kChannel, "ZOP_E_DRIVER_NOT_FOUND", "The driver's device cannot be opened.",
     "Start the driver with \"zoctl driver start\"; if it is already running, another process holds its device: "
     "\"zoctl doctor\" shows more.",
     kExitNoDriver},
    {0x80000002, Subject::kService, "ZOP_E_DRIVER_NOT_FOUND", "The driver's service or file does not exist.",
     "Install the driver with \"zoctl driver install PATH-OF-ZoProtectorDriver.sys\".", kExitNoDriver},
    {0x80000002, Subject::kInstall, "ZOP_E_DRIVER_NOT_FOUND", "The driver's file does not exist.",
     "Check the path of the driver's file.", kExitNoDriver},
    {0x80000002, Subject::kUpgrade, "ZOP_E_DRIVER_NOT_FOUND",
     "The new or the installed file does not exist, or the installed one is in use and no driver answers that could "
     "replace it.",
     "Check the path of the new file; if \"zoctl driver status\" shows an installed one, close what uses that or start "
     "the driver.",
     kExitNoDriver},
    {0x80000002, Subject::kCopy, "ZOP_E_DRIVER_NOT_FOUND", "The driver did not find the folder.",
     "Check that the source folder exists.", kExitNoDriver},
    {0x80000002, Subject::kAny, "ZOP_E_DRIVER_NOT_FOUND", "The driver, its service or its file was not found.",
     "Run \"zoctl doctor\".", kExitNoDriver},
    {0x80000003, Subject::kChannel, "ZOP_E_VERSION_MISMATCH", "The running driver's major version is not 1.",
     "Install the driver that belongs to this library and restart it.", kExitVersion},
    {0x80000003, Subject::kAny, "ZOP_E_VERSION_MISMATCH", "The driver is too old for this command.",
     "Upgrade the driver with \"zoctl driver upgrade PATH\" and restart it.", kExitVersion},
    {0x80000004, Subject::kUpgrade, "ZOP_E_ACCESS_DENIED", "Replacing the driver's file was denied.",
     "Run zoctl as an administrator; if you did, start the driver, which can replace its own file.", kExitAccess},
    {0x80000004, Subject::kAny, "ZOP_E_ACCESS_DENIED", "Access was denied.", "Run zoctl as an administrator.",
     kExitAccess},
    {0x80000005, Subject::kExempt, "ZOP_E_QUOTA_EXCEEDED", "The driver's list is full.",
     "Remove exemptions that are no longer needed, or exempt several processes with one folder.", kExitFull},
    {0x80000005, Subject::kOverride, "ZOP_E_QUOTA_EXCEEDED", "The driver's list is full.",
     "Remove exemptions that are no longer needed.", kExitFull},
    {0x80000005, Subject::kAny, "ZOP_E_QUOTA_EXCEEDED", "The driver's table is full.",
     "Remove rules that are no longer needed (\"zoctl rules list\" shows them), or cover several with one folder rule.",
     kExitFull},
    {0x80000006, Subject::kOverride, "ZOP_E_ALREADY_EXISTS", "The process is exempt already.",
     "Nothing needs to be done.", kExitExists},
    {0x80000006, Subject::kExempt, "ZOP_E_ALREADY_EXISTS", "The path is exempt already.",
     "Nothing needs to be done; to change the exemption, remove it first.", kExitExists},
    {0x80000006, Subject::kAny, "ZOP_E_ALREADY_EXISTS", "The driver already has this.",
     "Nothing needs to be done; to change the rule, remove it first.", kExitExists},
    {0x80000007, Subject::kRule, "ZOP_E_NOT_FOUND", "The driver has no such rule.",
     "\"zoctl rules list\" shows the driver's rules.", kExitNotFound},
    {0x80000007, Subject::kExempt, "ZOP_E_NOT_FOUND", "The path is not in the driver's list.",
     "Check the path; the driver cannot be asked for its list, but \"clear\" empties it.", kExitNotFound},
    {0x80000007, Subject::kOverride, "ZOP_E_NOT_FOUND", "The process is not in the driver's list.",
     "Check the process id; the driver cannot be asked for its list, but \"clear\" empties it.", kExitNotFound},
    {0x80000007, Subject::kProcess, "ZOP_E_NOT_FOUND", "The driver knows no such process.",
     "Check the process id, and that the process is still running.", kExitNotFound},
    {0x80000007, Subject::kAny, "ZOP_E_NOT_FOUND", "The driver did not find it.", "Check what was named.",
     kExitNotFound},
    {0x80000008, Subject::kKey, "ZOP_E_INVALID_ARG",
     "The key is empty, too long or in an unsupported form, or the driver refused it.",
     "Give a key that begins with HKLM\\, HKCR\\, HKCU\\, HKU\\ or \\REGISTRY\\.", kExitUsage},
    {0x80000008, Subject::kRule, "ZOP_E_INVALID_ARG", "The path is empty or too long, or the driver refused it.",
     "Give a path of at most 259 characters.", kExitUsage},
    {0x80000008, Subject::kAny, "ZOP_E_INVALID_ARG", "An argument is not valid.",
     "See the command's --help for what it accepts.", kExitUsage},
    {0x80000009, Subject::kKey, "ZOP_E_FAILED", "The key's name could not be converted, or the driver failed.",
     "Check the key; the diagnostic log (\"zoctl doctor\" shows its path) names the error.", kExitFailed},
    {0x80000009, Subject::kRule, "ZOP_E_FAILED", "The name could not be converted, or the driver failed.",
     "Check that the drive exists; the diagnostic log (\"zoctl doctor\" shows its path) names the error.", kExitFailed},
    {0x80000009, Subject::kAny, "ZOP_E_FAILED", "The driver or the system reported a failure and no reason.",
     "The diagnostic log (\"zoctl doctor\" shows its path) names the error.", kExitFailed},

    {0x80070714, Subject::kUpgrade, "ERROR_RESOURCE_DATA_NOT_FOUND", "The new file has no version.",
     "Check that it is the original driver file; nothing was replaced.", kExitFailed},
    {0x80070715, Subject::kUpgrade, "ERROR_RESOURCE_TYPE_NOT_FOUND", "The new file has no version.",
     "Check that it is the original driver file; nothing was replaced.", kExitFailed},
    {0x80070011, Subject::kUpgrade, "ERROR_NOT_SAME_DEVICE",
     "The installed file is in use and cannot be moved to the temporary folder, which is on another volume.",
     "Set TMP to a folder on the installed file's volume, or stop the driver, and upgrade again.", kExitFailed},
    {0x8007007A, Subject::kUpgrade, "ERROR_INSUFFICIENT_BUFFER",
     "The path for the replaced file would be longer than 259 characters.",
     "Set TMP to a folder with a shorter path and upgrade again.", kExitFailed},
    {0x8007007A, Subject::kInstall, "ERROR_INSUFFICIENT_BUFFER", "A path of the driver's file is too long.",
     "Start zoctl from a folder with a shorter path, or name a file with one.", kExitFailed},

    {0x80049101, Subject::kAny, "ZOSIG_E_THUMBPRINT_MISMATCH", "The key is not the one that signed the manifest.",
     "Verify with the key that signed it; \"zoctl keys thumbprint\" shows which key a key store holds.", kExitKey},
    {0x80049102, Subject::kAny, "ZOSIG_E_VERIFY_FAILED", "The folder differs from its manifest.",
     "Look at the items listed; sign again only if the changes are wanted.", kExitVerify},
    {0x80049103, Subject::kAny, "ZOSIG_E_BAD_MANIFEST", "The manifest is malformed.",
     "Get the manifest again from where it was signed, or sign the folder again.", kExitTampered},
    {0x80049104, Subject::kAny, "ZOSIG_E_NO_KEY", "No key could be loaded from the key store.",
     "Check the key store's path, or create a key pair with \"zoctl keys generate\".", kExitKey},
    {0x80049106, Subject::kAny, "ZOSIG_E_TAMPERED",
     "The manifest was changed after it was signed, or it was signed with another key.",
     "Verify with the key that signed it; if you did, do not trust the folder, and get the manifest again.",
     kExitTampered},

    {0x80004004, Subject::kAny, "E_ABORT", "It was cancelled.", "Run it again.", kExitCancelled},
    {0x80004005, Subject::kAny, "E_FAIL", "It failed.", "Run it again with --json for more details.", kExitFailed},
    {0x8007000E, Subject::kAny, "E_OUTOFMEMORY", "There is not enough memory.", "Close other programs and try again.",
     kExitFailed},
    {0x80070057, Subject::kAny, "E_INVALIDARG", "An argument is not valid.",
     "See the command's --help for what it accepts.", kExitUsage},

    {0x80070002, Subject::kAny, "ERROR_FILE_NOT_FOUND", "The file does not exist.", "Check the path.", kExitNoDriver},
    {0x80070003, Subject::kAny, "ERROR_PATH_NOT_FOUND", "The folder does not exist.", "Check the path.", kExitNoDriver},
    {0x80070005, Subject::kSigner, "ERROR_ACCESS_DENIED", "Access to a folder, key or manifest was denied.",
     "Check that you have access to the folder, the key store and the manifest's folder.", kExitAccess},
    {0x80070005, Subject::kCrash, "ERROR_ACCESS_DENIED", "Access to the dump or its folder was denied.",
     "Run zoctl as an administrator, or start the driver, which can copy dumps out.", kExitAccess},
    {0x80070005, Subject::kAny, "ERROR_ACCESS_DENIED", "Access was denied.", "Run zoctl as an administrator.",
     kExitAccess},
    {0x80070020, Subject::kAny, "ERROR_SHARING_VIOLATION", "Another process uses the file.",
     "Close the program that uses it and try again.", kExitFailed},
    {0x8007041B, Subject::kAny, "ERROR_DEPENDENT_SERVICES_RUNNING", "Other running services need the driver.",
     "Stop them first.", kExitFailed},
    {0x8007041C, Subject::kAny, "ERROR_INVALID_SERVICE_CONTROL", "The driver does not allow being stopped.",
     "Install it with --allow-unload and restart the system, or stop it by restarting the system.", kExitFailed},
    {0x8007041D, Subject::kAny, "ERROR_SERVICE_REQUEST_TIMEOUT", "The service did not stop within 15 seconds.",
     "Close the programs that use the driver (\"zoctl doctor\") and stop it again, or restart the system.",
     kExitFailed},
    {0x80070422, Subject::kAny, "ERROR_SERVICE_DISABLED", "The service is disabled.",
     "Enable it with \"zoctl driver set-start demand\" and start it again.", kExitFailed},
    {0x80070425, Subject::kAny, "ERROR_SERVICE_CANNOT_ACCEPT_CTRL",
     "The service does not accept commands at the moment.", "Wait until it has started or stopped, and try again.",
     kExitFailed},
    {0x8007045A, Subject::kAny, "ERROR_DLL_INIT_FAILED", "The driver's file could not be loaded.",
     "Check that the file of \"zoctl driver status\" exists and is a driver; install it again if not.", kExitFailed},
    {0x80070430, Subject::kAny, "ERROR_SERVICE_MARKED_FOR_DELETE", "The service is about to be removed.",
     "Close what holds it open (service consoles, the running driver), or restart the system, then install it again.",
     kExitFailed},
    {0x8007001F, Subject::kService, "ERROR_GEN_FAILURE", "The driver was loaded, but its own start failed.",
     "Look at the driver's messages in the system event log; install the version made for this Windows.", kExitFailed},
    {0x80070241, Subject::kAny, "ERROR_INVALID_IMAGE_HASH",
     "Windows does not accept the signature of the driver's file.",
     "Install a file that is signed for this Windows (\"zoctl doctor\" shows who signed it), or allow test-signed "
     "drivers "
     "on a test machine.",
     kExitFailed},
    {0x8007042C, Subject::kAny, "ERROR_SERVICE_DEPENDENCY_FAIL",
     "A service that the driver needs could not be started.",
     "Enable and start the Filter Manager: \"sc query FltMgr\", \"sc start FltMgr\"; then start the driver again.",
     kExitFailed},
    {0x800704FB, Subject::kAny, "ERROR_DRIVER_BLOCKED", "Windows blocks this driver from loading.",
     "Install a version that is not on the block list, or ask who set the policy (Memory integrity, App Control).",
     kExitFailed},
    {0x800704C7, Subject::kAny, "ERROR_CANCELLED", "It was cancelled.", "Run it again.", kExitCancelled},

    {0x80070002, Subject::kEngine, "ERROR_FILE_NOT_FOUND", "dbgeng.dll or dbghelp.dll was not found.",
     "Copy both from the Debugging Tools for Windows into the folder of zoctl.exe.", kExitNoDriver},
    {0x8007045A, Subject::kEngine, "ERROR_DLL_INIT_FAILED", "A debugger library could not be loaded.",
     "Copy dbgeng.dll and dbghelp.dll again from the Debugging Tools for Windows into the folder of zoctl.exe.",
     kExitFailed},
    {0x8007007E, Subject::kEngine, "ERROR_MOD_NOT_FOUND", "A debugger library lacks another DLL that it needs.",
     "Copy the DLLs of the Debugging Tools for Windows into the folder of zoctl.exe.", kExitFailed},
    {0x8007007F, Subject::kEngine, "ERROR_PROC_NOT_FOUND", "dbgeng.dll is not a debugger engine.",
     "Replace the dbgeng.dll in the folder of zoctl.exe by that of the Debugging Tools for Windows.", kExitFailed},
    {0x800700C1, Subject::kEngine, "ERROR_BAD_EXE_FORMAT", "A debugger library is not a 64-bit DLL.",
     "Use the 64-bit DLLs of the Debugging Tools for Windows.", kExitFailed},
    {0x80004001, Subject::kEngine, "E_NOTIMPL", "This debugger engine cannot analyse dumps.",
     "Copy dbgeng.dll and dbghelp.dll from the Debugging Tools for Windows into the folder of zoctl.exe.", kExitFailed},
    {0x80070570, Subject::kEngine, "ERROR_FILE_CORRUPT", "The file is damaged or is not a kernel dump.",
     "Check whether the file was copied completely.", kExitFailed},
};

Subject BroaderThan(Subject subject) {
    return subject == Subject::kKey || subject == Subject::kExempt ? Subject::kRule : Subject::kAny;
}

}  // namespace

std::span<const StatusRow> StatusTable() {
    return kRows;
}

bool HasStatusRow(std::int32_t status) {
    for (const StatusRow& row : kRows) {
        if (row.value == zo::Bits(status)) return true;
    }
    return false;
}

StatusText DescribeStatus(std::int32_t status, Subject subject) {
    const std::uint32_t bits = zo::Bits(status);
    const std::string value = zo::Format("0x{:08X}", bits);
    const StatusRow* found = nullptr;
    for (const Subject wanted : {Subject::kAny, BroaderThan(subject), subject}) {
        for (const StatusRow& row : kRows) {
            if (row.value == bits && row.subject == wanted) found = &row;
        }
    }
    if (found) return {found->name, value, found->meaning, found->advice, found->exitCode};
    std::string advice = "The diagnostic log (\"zoctl doctor\" shows its path) may say more.";
    if (subject == Subject::kSigner || subject == Subject::kAny)
        advice = "Check the named paths and that you have access to them, then try again.";
    if (subject == Subject::kCrash || subject == Subject::kEngine) {
        advice = "Run it again with --json: \"messages\" may say more.";
    }
    if ((bits & 0xFFFF0000u) == 0x80070000u) {
        return {zo::Format("HRESULT_FROM_WIN32({})", bits & 0xFFFFu), value, "The system reported an error.", advice,
                kExitFailed};
    }
    return {"unnamed status", value, "The call failed.", advice, kExitFailed};
}

}  // namespace zoctl
