// The table of protected files and folders, the file filter's switch, and the processes that it lets pass.

#include <algorithm>

#include "rule_request.h"
#include "zoprotector.h"

using namespace zop;

namespace {

// A filter that is too long is cut; the rule is still sent.
void StoreFilter(ZopFileRuleRecord& record, const wchar_t* filter) {
    if (filter == nullptr) return;
    wchar_t text[ZOP_FILTER_UNITS] = {};
    const std::wstring_view given(filter);
    given.copy(text, std::min<std::size_t>(given.size(), ZOP_FILTER_UNITS - 1));
    ZopStoreText(record, &ZopFileRuleRecord::filter, text);
}

// No filter at all means every name.
std::string FilterForLog(const wchar_t* filter) {
    return ZopWideToUtf8(filter != nullptr ? filter : L"*");
}

}  // namespace

int32_t ZoProtector_AddFileProtectByPath(const wchar_t* path) {
    ZopFileRuleRecord record{};
    if (const std::int32_t status = ZopPreparePath(path, record); status < 0) return status;
    return ZopSendAndLog(ZOP_IOCTL_ADD_FILE_RULE, record, "AddFileProtectByPath: Added '{}'", ZopWideToUtf8(path));
}

int32_t ZoProtector_AddFileProtectByFolder(const wchar_t* folder, uint8_t recursive, const wchar_t* filter) {
    ZopFileRuleRecord record{};
    if (const std::int32_t status = ZopPreparePath(folder, record); status < 0) return status;
    record.isFolder = 1;
    record.recursive = recursive;  // the driver gets the caller's byte, not 0 or 1
    StoreFilter(record, filter);
    return ZopSendAndLog(ZOP_IOCTL_ADD_FILE_RULE, record, "AddFileProtectByFolder: Added '{}' Filter='{}'",
                         ZopWideToUtf8(folder), FilterForLog(filter));
}

int32_t ZoProtector_AddFileProtectScoped(const wchar_t* path, int32_t isFolder, int32_t recursive,
                                         const wchar_t* filter, const wchar_t* scope, uint32_t scopeIsFolder,
                                         uint32_t scopeRecursive, uint32_t exclusive) {
    if (const std::int32_t status = ZopCheckNames({path, scope}); status < 0) return status;
    ZopFileRuleRecord record{};
    if (const std::int32_t status = ZopConvertPath(path, record, &ZopFileRuleRecord::path); status < 0) return status;
    if (const std::int32_t status = ZopConvertPath(scope, record, &ZopFileRuleRecord::scopePath); status < 0) {
        return status;
    }
    record.isFolder = ZopFlag(isFolder);
    record.recursive = ZopFlag(recursive);
    record.scopeIsFolder = ZopFlag(scopeIsFolder);
    record.scopeRecursive = ZopFlag(scopeRecursive);
    record.exclusive = ZopFlag(exclusive);
    StoreFilter(record, filter);
    return ZopSendAndLog(ZOP_IOCTL_ADD_FILE_RULE, record,
                         "AddFileProtectScoped: '{}' Filter='{}' Scope='{}' Exclusive={}", ZopWideToUtf8(path),
                         FilterForLog(filter), ZopWideToUtf8(scope), ZopFlag(exclusive));
}

int32_t ZoProtector_RemoveFileProtect(const wchar_t* path) {
    return ZopRemovePath(ZOP_IOCTL_REMOVE_FILE_RULE, path, "RemoveFileProtect");
}

int32_t ZoProtector_ClearAllFileProtect() {
    return ZopClear(ZOP_IOCTL_CLEAR_FILE_RULES, "ClearAllFileProtect: Cleared");
}

int32_t ZoProtector_EnableFileProtect(int32_t enable) {
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    const ZopToggleRecord record{ZopFlag(enable)};
    return ZopSendAndLog(ZOP_IOCTL_ENABLE_FILE_PROTECT, record, "EnableFileProtect: {}", ZopStateWord(enable));
}

int32_t ZoProtector_AddFileIgnoreProcess(const wchar_t* path, int32_t isFolder, int32_t recursive) {
    return ZopAddIgnoreProcess(ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, path, isFolder, recursive, "AddFileIgnoreProcess");
}

int32_t ZoProtector_RemoveFileIgnoreProcess(const wchar_t* path) {
    return ZopRemovePath(ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS, path, "RemoveFileIgnoreProcess");
}

int32_t ZoProtector_ClearAllFileIgnoreProcesses() {
    return ZopClear(ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, "ClearAllFileIgnoreProcesses: Cleared");
}
