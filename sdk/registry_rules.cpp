// The table of protected registry keys, and the processes that the registry filter lets pass.

#include "rule_request.h"
#include "zoprotector.h"

using namespace zop;

int32_t ZoProtector_AddRegistryProtectByKey(const wchar_t* key, uint32_t recursive) {
    if (const std::int32_t status = ZopCheckNames({key}); status < 0) return status;
    ZopRegistryRuleRecord record{};
    if (const std::int32_t status = ZopConvertKey(key, record); status < 0) {
        ZopLogFormat(kLogError, "AddRegistryProtectByKey: Path conversion failed for '{}'", ZopWideToUtf8(key));
        return status;
    }
    record.recursive = ZopLowByte(recursive);
    return ZopSendAndLog(ZOP_IOCTL_ADD_REGISTRY_RULE, record, "AddRegistryProtectByKey: Added '{}' (Recursive={})",
                         ZopWideToUtf8(key), ZopSigned(recursive));
}

int32_t ZoProtector_RemoveRegistryProtect(const wchar_t* key) {
    if (const std::int32_t status = ZopCheckNames({key}); status < 0) return status;
    ZopRegistryKeyRecord record{};
    if (const std::int32_t status = ZopConvertKey(key, record); status < 0) return status;
    return ZopSendAndLog(ZOP_IOCTL_REMOVE_REGISTRY_RULE, record, "RemoveRegistryProtect: Removed '{}'",
                         ZopWideToUtf8(key));
}

int32_t ZoProtector_ClearAllRegistryProtect() {
    return ZopClear(ZOP_IOCTL_CLEAR_REGISTRY_RULES, "ClearAllRegistryProtect: Cleared");
}

int32_t ZoProtector_AddRegistryIgnoreProcess(const wchar_t* path, int32_t isFolder, int32_t recursive) {
    return ZopAddIgnoreProcess(ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, path, isFolder, recursive,
                               "AddRegistryIgnoreProcess");
}

int32_t ZoProtector_RemoveRegistryIgnoreProcess(const wchar_t* path) {
    return ZopRemovePath(ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS, path, "RemoveRegistryIgnoreProcess");
}

int32_t ZoProtector_ClearAllRegistryIgnoreProcesses() {
    return ZopClear(ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES, "ClearAllRegistryIgnoreProcesses: Cleared");
}
