#include "rule_request.h"

#include <algorithm>

#include "zoprotector_status.h"

namespace zop {

std::int32_t ZopCheckNames(std::initializer_list<const wchar_t*> names) noexcept {
    const auto isMissing = [](const wchar_t* name) { return name == nullptr || *name == L'\0'; };
    if (std::any_of(names.begin(), names.end(), isMissing)) return ZOP_E_INVALID_ARG;
    return ZopIsInitialized() ? ZOP_OK : ZOP_E_NOT_INITIALIZED;
}

std::int32_t ZopRemovePath(std::uint32_t code, const wchar_t* path, std::string_view exportName) {
    ZopPathRecord record{};
    if (const std::int32_t status = ZopPreparePath(path, record); status < 0) return status;
    return ZopSendAndLog(code, record, "{}: Removed '{}'", exportName, ZopWideToUtf8(path));
}

std::int32_t ZopClear(std::uint32_t code, std::string_view line) {
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    const std::int32_t status = ZopSendIoctl(code, nullptr, 0, nullptr, 0, nullptr);
    if (status >= 0) ZopLogWrite(kLogInfo, line);
    return status;
}

std::int32_t ZopAddIgnoreProcess(std::uint32_t code, const wchar_t* path, std::int32_t isFolder, std::int32_t recursive,
                                 std::string_view exportName) {
    ZopRuleRecord record{};
    if (const std::int32_t status = ZopPreparePath(path, record); status < 0) return status;
    record.isFolder = ZopFlag(isFolder);
    record.recursive = ZopFlag(recursive);
    return ZopSendAndLog(code, record, "{}: Added '{}' (Folder={}, Recursive={})", exportName, ZopWideToUtf8(path),
                         ZopFlag(isFolder), ZopFlag(recursive));
}

}  // namespace zop
