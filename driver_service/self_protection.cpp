// ZoProtector_AddDriverSelfProtect: protects the driver's own file and service key.

#include <string>

#include "driver_paths.h"
#include "image_path.h"
#include "service_names.h"
#include "zoprotector.h"

namespace zop {
namespace {

// The path as the service manager holds it, or the default source path.
std::int32_t FindDriverFile(std::wstring& file) {
    ZoProtectorDriverStatus status;
    if (ZoProtector_QueryDriverStatus(&status) >= 0) file = ZopResolveImagePath(status.imagePath);
    if (!file.empty()) return ZOP_OK;

    ZopPathBuffer path;
    if (ZopDefaultSourcePath(path) < 0) return ZOP_E_FAILED;
    file = path.View();
    return ZOP_OK;
}

// A rule that exists already is what the caller wants.
std::int32_t AcceptExisting(std::int32_t status) {
    return status == ZOP_E_ALREADY_EXISTS ? ZOP_OK : status;
}

}  // namespace
}  // namespace zop

int32_t ZoProtector_AddDriverSelfProtect(void) {
    using namespace zop;
    std::wstring file;
    if (const int32_t status = FindDriverFile(file); status < 0) return status;
    if (const int32_t status = AcceptExisting(ZoProtector_AddFileProtectByPath(file.c_str())); status < 0) {
        return status;
    }
    if (const int32_t status = ZoProtector_EnableFileProtect(1); status < 0) return status;

    const std::wstring key = std::wstring(L"HKLM\\") + kServiceKey;
    return AcceptExisting(ZoProtector_AddRegistryProtectByKey(key.c_str(), 1));
}
