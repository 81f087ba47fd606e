// ZoProtector_CopyDirectory: a directory tree copied by the driver, for folders that this process may not read.

#include "channel.h"
#include "diagnostic_log.h"
#include "driver_records.h"
#include "rule_request.h"
#include "zoprotector.h"

namespace {

void StoreIfWanted(uint32_t* counter, uint32_t value) {
    if (counter != nullptr) *counter = value;
}

}  // namespace

int32_t ZoProtector_CopyDirectory(const wchar_t* sourceDir, const wchar_t* destinationDir, int32_t option1,
                                  uint32_t option2, uint32_t* filesCopied, uint32_t* dirsCopied, uint32_t* skipped) {
    using namespace zop;
    StoreIfWanted(filesCopied, 0);
    StoreIfWanted(dirsCopied, 0);
    StoreIfWanted(skipped, 0);
    if (const int32_t status = ZopCheckNames({sourceDir, destinationDir}); status < 0) return status;

    using Request = ZoProtectorCopyDirectoryRequest;
    Request request{};
    if (const int32_t status = ZopConvertPath(sourceDir, request, &Request::sourceDir); status < 0) return status;
    if (const int32_t status = ZopConvertPath(destinationDir, request, &Request::destinationDir); status < 0) {
        return status;
    }
    request.option1 = ZopFlag(option1);
    request.option2 = ZopFlag(option2);

    ZoProtectorCopyDirectoryResult result{};
    uint32_t returned = 0;
    const int32_t status =
        ZopSendIoctl(ZOP_IOCTL_COPY_DIRECTORY, &request, sizeof(request), &result, sizeof(result), &returned);
    if (returned < sizeof(result)) result = {};
    // A driver that stops half-way still reports what it has copied.
    StoreIfWanted(filesCopied, result.filesCopied);
    StoreIfWanted(dirsCopied, result.dirsCopied);
    StoreIfWanted(skipped, result.skipped);
    ZopLogFormat(kLogInfo, "CopyDirectory: '{}' -> '{}' files={} dirs={} skipped={}", ZopWideToUtf8(sourceDir),
                 ZopWideToUtf8(destinationDir), result.filesCopied, result.dirsCopied, result.skipped);
    return status;
}
