#include "driver_paths.h"

#include "image_path.h"
#include "service_access.h"
#include "service_errors.h"
#include "service_names.h"

namespace zop {

std::int32_t ZopDefaultSourcePath(ZopPathBuffer& path) {
    const DWORD length = GetModuleFileNameW(nullptr, path.Data(), ZopPathBuffer::kUnits);
    if (length == 0) return ZopMapServiceError(GetLastError());
    if (length >= ZopPathBuffer::kUnits) return kPathDoesNotFit;  // what was stored is cut
    path.CutAfterLastSeparator();
    return path.Append(kDriverFileName) ? ZOP_OK : kPathDoesNotFit;
}

std::int32_t ZopInstalledPath(ZopPathBuffer& path) {
    const DWORD length = GetEnvironmentVariableW(L"SystemRoot", path.Data(), ZopPathBuffer::kUnits);
    // An empty variable would name a folder of the current drive.
    if (length == 0) return ZopMapServiceError(ERROR_ENVVAR_NOT_FOUND);
    if (length >= ZopPathBuffer::kUnits) return kPathDoesNotFit;
    return path.Append(L"\\System32\\drivers\\") && path.Append(kDriverFileName) ? ZOP_OK : kPathDoesNotFit;
}

std::int32_t ZopConfiguredImagePath(ZopPathBuffer& path) {
    ZopDriverService driver;
    if (ZopOpenDriverService(SC_MANAGER_CONNECT, SERVICE_QUERY_CONFIG, driver) == ERROR_SUCCESS) {
        const zo::HeapBlock block = ZopReadServiceConfig(driver.service.Get());
        const auto* config = block.As<QUERY_SERVICE_CONFIGW>();
        if (config != nullptr && config->lpBinaryPathName != nullptr) {
            path.AssignCut(ZopResolveImagePath(config->lpBinaryPathName));
        }
    }
    return path.Empty() ? ZopDefaultSourcePath(path) : ZOP_OK;
}

}  // namespace zop
