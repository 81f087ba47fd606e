#include "file_version.h"

#include "driver_paths.h"
#include "owned_handles.h"
#include "service_errors.h"
#include "zoprotector.h"

namespace zop {

std::int32_t ZopReadFileVersion(const wchar_t* path, ZopFileVersion& version) {
    version = {};
    SetLastError(ERROR_SUCCESS);
    const DWORD size = GetFileVersionInfoSizeW(path, nullptr);
    if (size == 0) return ZopMapServiceError(GetLastError());

    const zo::HeapBlock block(size);
    if (!block) return zo::kOutOfMemory;
    if (!GetFileVersionInfoW(path, 0, size, block.Get())) return ZopMapServiceError(GetLastError());

    void* root = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(block.Get(), L"\\", &root, &length) || length < sizeof(VS_FIXEDFILEINFO)) {
        return ZOP_E_DRIVER_NOT_FOUND;
    }
    const auto* info = static_cast<const VS_FIXEDFILEINFO*>(root);
    version.major = HIWORD(info->dwFileVersionMS);
    version.minor = LOWORD(info->dwFileVersionMS);
    version.build = HIWORD(info->dwFileVersionLS);
    version.revision = LOWORD(info->dwFileVersionLS);
    return ZOP_OK;
}

}  // namespace zop

static_assert(sizeof(VS_FIXEDFILEINFO) == 52);

int32_t ZoProtector_GetDriverFileVersion(uint32_t* major, uint32_t* minor, uint32_t* build, uint32_t* revision) {
    using namespace zop;
    if (major == nullptr || minor == nullptr || build == nullptr || revision == nullptr) return ZOP_E_INVALID_ARG;
    *major = *minor = *build = *revision = 0;

    ZopPathBuffer path;
    if (const int32_t status = ZopConfiguredImagePath(path); status < 0) return status;
    ZopFileVersion version;
    const int32_t status = ZopReadFileVersion(path.Text(), version);
    *major = version.major;
    *minor = version.minor;
    *build = version.build;
    *revision = version.revision;
    return status;
}
