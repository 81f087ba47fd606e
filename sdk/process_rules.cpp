// The table of protected processes.

#include "rule_request.h"
#include "zoprotector.h"

using namespace zop;

int32_t ZoProtector_AddProcessProtectByPath(const wchar_t* path) {
    if (const std::int32_t status = ZopCheckNames({path}); status < 0) return status;
    ZopRuleRecord record{};
    if (const std::int32_t status = ZopConvertPath(path, record, &ZopRuleRecord::path); status < 0) {
        ZopLogFormat(kLogError, "AddProcessProtectByPath: Path conversion failed for '{}'", ZopWideToUtf8(path));
        return status;
    }
    return ZopSendAndLog(ZOP_IOCTL_ADD_PROCESS_RULE, record, "AddProcessProtectByPath: Added '{}'",
                         ZopWideToUtf8(path));
}

int32_t ZoProtector_AddProcessProtectByFolder(const wchar_t* folder, uint32_t recursive) {
    ZopRuleRecord record{};
    if (const std::int32_t status = ZopPreparePath(folder, record); status < 0) return status;
    record.isFolder = 1;
    record.recursive = ZopLowByte(recursive);
    return ZopSendAndLog(ZOP_IOCTL_ADD_PROCESS_RULE, record, "AddProcessProtectByFolder: Added '{}' (Recursive={})",
                         ZopWideToUtf8(folder), ZopSigned(recursive));
}

int32_t ZoProtector_RemoveProcessProtect(const wchar_t* path) {
    return ZopRemovePath(ZOP_IOCTL_REMOVE_PROCESS_RULE, path, "RemoveProcessProtect");
}

int32_t ZoProtector_ClearAllProcessProtect() {
    return ZopClear(ZOP_IOCTL_CLEAR_PROCESS_RULES, "ClearAllProcessProtect: Cleared");
}
