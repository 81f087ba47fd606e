// The switch of the DLL load filter, and the folders from which modules may always be loaded.

#include "rule_request.h"
#include "zoprotector.h"

using namespace zop;

int32_t ZoProtector_EnableDllLoadFilter(int32_t enable) {
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    // Unlike the file and master switches: 256 sends 0, though the line says "Enabled".
    const ZopToggleRecord record{ZopLowByte(static_cast<std::uint32_t>(enable))};
    return ZopSendAndLog(ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, record, "EnableDllLoadFilter: {}", ZopStateWord(enable));
}

int32_t ZoProtector_AddDllWhitelistFolder(const wchar_t* folder, uint32_t recursive) {
    ZopDllFolderRecord record{};
    if (const std::int32_t status = ZopPreparePath(folder, record); status < 0) return status;
    record.recursive = ZopLowByte(recursive);
    return ZopSendAndLog(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, record, "AddDllWhitelistFolder: Added '{}' (Recursive={})",
                         ZopWideToUtf8(folder), ZopSigned(recursive));
}

int32_t ZoProtector_RemoveDllWhitelistFolder(const wchar_t* folder) {
    return ZopRemovePath(ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER, folder, "RemoveDllWhitelistFolder");
}

int32_t ZoProtector_ClearAllDllWhitelist() {
    return ZopClear(ZOP_IOCTL_CLEAR_DLL_WHITELIST, "ClearAllDllWhitelist: Cleared");
}
