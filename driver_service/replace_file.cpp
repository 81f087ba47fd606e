#include "replace_file.h"

#include "channel.h"
#include "diagnostic_log.h"
#include "driver_records.h"
#include "format.h"
#include "rule_request.h"
#include "service_errors.h"
#include "staging_file.h"
#include "zoprotector.h"

namespace zop {
namespace {

bool AreOnSameVolume(const wchar_t* first, const wchar_t* second) {
    ZopPathBuffer a;
    ZopPathBuffer b;
    return GetVolumePathNameW(first, a.Data(), ZopPathBuffer::kUnits) &&
           GetVolumePathNameW(second, b.Data(), ZopPathBuffer::kUnits) &&
           CompareStringOrdinal(a.Text(), -1, b.Text(), -1, TRUE) == CSTR_EQUAL;
}

// In the temporary folder when that is on the target's volume, else beside the target: the driver renames the old file
// to this name, and a rename does not cross volumes.
std::int32_t ChooseStagingPath(const wchar_t* target, ZopPathBuffer& staging) {
    const std::uint64_t number = GetTickCount64();
    if (ZopReadTemporaryFolder(staging) && AreOnSameVolume(target, staging.Text())) {
        return ZopAppendStagingName(staging, number, L".sys") ? ZOP_OK : kPathDoesNotFit;
    }
    if (!staging.Assign(target)) return kPathDoesNotFit;
    staging.CutAfterLastSeparator();
    return ZopAppendStagingName(staging, number, L".old") ? ZOP_OK : kPathDoesNotFit;
}

std::int32_t BuildRequest(const wchar_t* target, const wchar_t* source, ZopPathBuffer& staging,
                          ZoProtectorReplaceFileRequest& request) {
    using Request = ZoProtectorReplaceFileRequest;
    std::int32_t status = ChooseStagingPath(target, staging);
    if (status >= 0) status = ZopConvertPath(target, request, &Request::targetPath);
    if (status >= 0) status = ZopConvertPath(source, request, &Request::sourcePath);
    if (status >= 0) status = ZopConvertPath(staging.Text(), request, &Request::stagingPath);
    return status;
}

}  // namespace

std::int32_t ZopReplaceFileByDriver(const wchar_t* targetPath, const wchar_t* sourcePath) {
    if (targetPath == nullptr || *targetPath == L'\0' || sourcePath == nullptr || *sourcePath == L'\0') {
        return ZOP_E_INVALID_ARG;
    }
    if (const std::int32_t status = ZoProtector_Initialize(); status < 0) return status;
    ZopPathBuffer staging;
    ZoProtectorReplaceFileRequest request{};
    if (const std::int32_t status = BuildRequest(targetPath, sourcePath, staging, request); status < 0) return status;

    const std::int32_t status = ZopSendIoctl(ZOP_IOCTL_REPLACE_FILE, &request, sizeof(request), nullptr, 0, nullptr);
    if (status < 0) {
        ZopLogFormat(kLogError, "ReplaceFileByDriver: IOCTL failed 0x{:08X} for '{}'", zo::Bits(status),
                     ZopWideToUtf8(targetPath));
        return status;
    }
    ZopDeleteAtRestart(staging);
    ZopLogFormat(kLogInfo, "ReplaceFileByDriver: '{}' <- '{}' (moved old -> '{}', flagged delete-on-reboot)",
                 ZopWideToUtf8(targetPath), ZopWideToUtf8(sourcePath), ZopWideToUtf8(staging.View()));
    return ZOP_OK;
}

}  // namespace zop
