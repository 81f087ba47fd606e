#pragma once

// Opening the driver's service and reading its configuration. What is done with it belongs to the callers; errors are
// plain Win32 errors here, because some callers count one of them as success.

#include <windows.h>

#include "owned_handles.h"

namespace zop {

struct DriverService {
    zo::OwnedService manager;
    zo::OwnedService service;  // closed before its manager
};

// Opens the manager on this machine, then the service. ERROR_SUCCESS, or the error of the call that failed.
[[nodiscard]] DWORD OpenServiceManager(DWORD access, zo::OwnedService& manager);
[[nodiscard]] DWORD OpenDriverService(DWORD managerAccess, DWORD serviceAccess, DriverService& driver);

// A QUERY_SERVICE_CONFIGW with its texts behind it; empty when it cannot be read. The service must be open for
// SERVICE_QUERY_CONFIG.
[[nodiscard]] zo::HeapBlock ReadServiceConfig(SC_HANDLE service);

// False when the state cannot be read. The service must be open for SERVICE_QUERY_STATUS.
[[nodiscard]] bool ReadServiceState(SC_HANDLE service, SERVICE_STATUS_PROCESS& state);

}  // namespace zop
