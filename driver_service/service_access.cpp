#include "service_access.h"

#include "service_names.h"

namespace zop {

DWORD OpenServiceManager(DWORD access, zo::OwnedService& manager) {
    manager.Reset(OpenSCManagerW(nullptr, nullptr, access));
    return manager ? ERROR_SUCCESS : GetLastError();
}

DWORD OpenDriverService(DWORD managerAccess, DWORD serviceAccess, DriverService& driver) {
    if (const DWORD error = OpenServiceManager(managerAccess, driver.manager); error != ERROR_SUCCESS) return error;
    driver.service.Reset(OpenServiceW(driver.manager.Get(), kServiceName, serviceAccess));
    return driver.service ? ERROR_SUCCESS : GetLastError();
}

zo::HeapBlock ReadServiceConfig(SC_HANDLE service) {
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);  // fails by design and tells the size
    if (size == 0) return {};
    zo::HeapBlock block(size);
    if (!block || !QueryServiceConfigW(service, block.As<QUERY_SERVICE_CONFIGW>(), size, &size)) return {};
    return block;
}

bool ReadServiceState(SC_HANDLE service, SERVICE_STATUS_PROCESS& state) {
    DWORD needed = 0;
    return QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&state), sizeof(state),
                                &needed) != FALSE;
}

}  // namespace zop
