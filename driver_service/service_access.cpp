#include "service_access.h"

#include "service_names.h"

namespace zop {

DWORD ZopOpenServiceManager(DWORD access, zo::OwnedService& manager) {
    manager.Reset(OpenSCManagerW(nullptr, nullptr, access));
    return manager ? ERROR_SUCCESS : GetLastError();
}

DWORD ZopOpenDriverService(DWORD managerAccess, DWORD serviceAccess, ZopDriverService& driver) {
    if (const DWORD error = ZopOpenServiceManager(managerAccess, driver.manager); error != ERROR_SUCCESS) return error;
    driver.service.Reset(OpenServiceW(driver.manager.Get(), kServiceName, serviceAccess));
    return driver.service ? ERROR_SUCCESS : GetLastError();
}

zo::HeapBlock ZopReadServiceConfig(SC_HANDLE service) {
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);  // fails by design and reports the size
    zo::HeapBlock block(size);
    if (!block || !QueryServiceConfigW(service, block.As<QUERY_SERVICE_CONFIGW>(), size, &size)) return {};
    return block;
}

bool ZopReadServiceState(SC_HANDLE service, SERVICE_STATUS_PROCESS& state) {
    DWORD needed = 0;
    return QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&state), sizeof(state),
                                &needed) != FALSE;
}

}  // namespace zop
