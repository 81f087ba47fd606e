#include "sdk_fixture.h"

namespace sdktest {

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new OwnTemporaryFolder);

const std::vector<Command>& AllCommands() {
    static std::uint32_t numbers[4];
    static std::vector<std::uint8_t> records(64 * 2344);
    static ZopStatus status;
    static ZopStats stats;
    static ZopSignaturePolicy policy;
    static const std::vector<Command> commands = {
        {"GetStatus", ZOP_IOCTL_GET_STATUS, [] { return ZoProtector_GetStatus(&status); }},
        {"SetMasterEnabled", ZOP_IOCTL_SET_MASTER_ENABLED, [] { return ZoProtector_SetMasterEnabled(1); }},
        {"GetMasterEnabled", ZOP_IOCTL_GET_MASTER_ENABLED, [] { return ZoProtector_GetMasterEnabled(numbers); }},
        {"ForceCrash", ZOP_IOCTL_FORCE_CRASH, [] { return ZoProtector_ForceCrash(); }},
        {"AddProcessProtectByPath", ZOP_IOCTL_ADD_PROCESS_RULE,
         [] { return ZoProtector_AddProcessProtectByPath(L"C:\\a.exe"); }},
        {"AddProcessProtectByFolder", ZOP_IOCTL_ADD_PROCESS_RULE,
         [] { return ZoProtector_AddProcessProtectByFolder(L"C:\\f", 1); }},
        {"RemoveProcessProtect", ZOP_IOCTL_REMOVE_PROCESS_RULE,
         [] { return ZoProtector_RemoveProcessProtect(L"C:\\a.exe"); }},
        {"ClearAllProcessProtect", ZOP_IOCTL_CLEAR_PROCESS_RULES, [] { return ZoProtector_ClearAllProcessProtect(); }},
        {"AddFileProtectByPath", ZOP_IOCTL_ADD_FILE_RULE, [] { return ZoProtector_AddFileProtectByPath(L"C:\\a"); }},
        {"AddFileProtectByFolder", ZOP_IOCTL_ADD_FILE_RULE,
         [] { return ZoProtector_AddFileProtectByFolder(L"C:\\f", 1, L"*.exe"); }},
        {"AddFileProtectScoped", ZOP_IOCTL_ADD_FILE_RULE,
         [] { return ZoProtector_AddFileProtectScoped(L"C:\\s", 1, 1, nullptr, L"C:\\x", 1, 1, 1); }},
        {"RemoveFileProtect", ZOP_IOCTL_REMOVE_FILE_RULE, [] { return ZoProtector_RemoveFileProtect(L"C:\\a"); }},
        {"ClearAllFileProtect", ZOP_IOCTL_CLEAR_FILE_RULES, [] { return ZoProtector_ClearAllFileProtect(); }},
        {"EnableFileProtect", ZOP_IOCTL_ENABLE_FILE_PROTECT, [] { return ZoProtector_EnableFileProtect(1); }},
        {"AddFileIgnoreProcess", ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS,
         [] { return ZoProtector_AddFileIgnoreProcess(L"C:\\i.exe", 0, 0); }},
        {"RemoveFileIgnoreProcess", ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS,
         [] { return ZoProtector_RemoveFileIgnoreProcess(L"C:\\i.exe"); }},
        {"ClearAllFileIgnoreProcesses", ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES,
         [] { return ZoProtector_ClearAllFileIgnoreProcesses(); }},
        {"AddRegistryProtectByKey", ZOP_IOCTL_ADD_REGISTRY_RULE,
         [] { return ZoProtector_AddRegistryProtectByKey(L"HKLM\\k", 1); }},
        {"RemoveRegistryProtect", ZOP_IOCTL_REMOVE_REGISTRY_RULE,
         [] { return ZoProtector_RemoveRegistryProtect(L"HKLM\\k"); }},
        {"ClearAllRegistryProtect", ZOP_IOCTL_CLEAR_REGISTRY_RULES,
         [] { return ZoProtector_ClearAllRegistryProtect(); }},
        {"AddRegistryIgnoreProcess", ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS,
         [] { return ZoProtector_AddRegistryIgnoreProcess(L"C:\\i.exe", 0, 0); }},
        {"RemoveRegistryIgnoreProcess", ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS,
         [] { return ZoProtector_RemoveRegistryIgnoreProcess(L"C:\\i.exe"); }},
        {"ClearAllRegistryIgnoreProcesses", ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES,
         [] { return ZoProtector_ClearAllRegistryIgnoreProcesses(); }},
        {"SetSignaturePolicy", ZOP_IOCTL_SET_SIGNATURE_POLICY, [] { return ZoProtector_SetSignaturePolicy(&policy); }},
        {"GetSignaturePolicy", ZOP_IOCTL_GET_SIGNATURE_POLICY, [] { return ZoProtector_GetSignaturePolicy(&policy); }},
        {"QueryPidSignature", ZOP_IOCTL_QUERY_PID_SIGNATURE,
         [] { return ZoProtector_QueryPidSignature(4, numbers, numbers + 1); }},
        {"RefreshPidSignature", ZOP_IOCTL_REFRESH_PID_SIGNATURE,
         [] { return ZoProtector_RefreshPidSignature(4, numbers, numbers + 1); }},
        {"AddSignatureOverride", ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, [] { return ZoProtector_AddSignatureOverride(4); }},
        {"RemoveSignatureOverride", ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE,
         [] { return ZoProtector_RemoveSignatureOverride(4); }},
        {"ClearAllSignatureOverrides", ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES,
         [] { return ZoProtector_ClearAllSignatureOverrides(); }},
        {"EnableDllLoadFilter", ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, [] { return ZoProtector_EnableDllLoadFilter(1); }},
        {"AddDllWhitelistFolder", ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER,
         [] { return ZoProtector_AddDllWhitelistFolder(L"C:\\d", 1); }},
        {"RemoveDllWhitelistFolder", ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER,
         [] { return ZoProtector_RemoveDllWhitelistFolder(L"C:\\d"); }},
        {"ClearAllDllWhitelist", ZOP_IOCTL_CLEAR_DLL_WHITELIST, [] { return ZoProtector_ClearAllDllWhitelist(); }},
        {"ListProcessProtectRules", ZOP_IOCTL_LIST_PROCESS_RULES,
         [] { return ZoProtector_ListProcessProtectRules(records.data(), 64, numbers, numbers + 1); }},
        {"ListFileProtectRules", ZOP_IOCTL_LIST_FILE_RULES,
         [] { return ZoProtector_ListFileProtectRules(records.data(), 64, numbers, numbers + 1); }},
        {"ListRegistryProtectRules", ZOP_IOCTL_LIST_REGISTRY_RULES,
         [] { return ZoProtector_ListRegistryProtectRules(records.data(), 64, numbers, numbers + 1); }},
        {"ListDllWhitelistRules", ZOP_IOCTL_LIST_DLL_WHITELIST,
         [] { return ZoProtector_ListDllWhitelistRules(records.data(), 64, numbers, numbers + 1); }},
        {"DrainEvents", ZOP_IOCTL_DRAIN_EVENTS,
         [] { return ZoProtector_DrainEvents(0, records.data(), 64, numbers, numbers + 1, numbers + 2); }},
        {"DrainRegistryEvents", ZOP_IOCTL_DRAIN_REGISTRY_EVENTS,
         [] { return ZoProtector_DrainRegistryEvents(0, records.data(), 64, numbers, numbers + 1, numbers + 2); }},
        {"GetStats", ZOP_IOCTL_GET_STATS, [] { return ZoProtector_GetStats(&stats); }},
        {"GetUnsignedBypassAttempts", ZOP_IOCTL_GET_STATS,
         [] { return ZoProtector_GetUnsignedBypassAttempts(numbers); }},
    };
    return commands;
}

}  // namespace sdktest
