#pragma once

// Opening the driver's service and reading its configuration. Errors are plain Win32 errors here, because some callers
// count one of them as success.

#include <windows.h>

#include "owned_handles.h"

namespace zop {

struct ZopDriverService {
    zo::OwnedService manager;
    zo::OwnedService service;  // closed before its manager
};

// Opens the manager on this machine, then the service. ERROR_SUCCESS, or the error of the call that failed.
[[nodiscard]] DWORD ZopOpenServiceManager(DWORD access, zo::OwnedService& manager);
[[nodiscard]] DWORD ZopOpenDriverService(DWORD managerAccess, DWORD serviceAccess, ZopDriverService& driver);

// A QUERY_SERVICE_CONFIGW followed by its texts; empty when it cannot be read. The service must be open for
// SERVICE_QUERY_CONFIG.
[[nodiscard]] zo::HeapBlock ZopReadServiceConfig(SC_HANDLE service);

// False when the state cannot be read. The service must be open for SERVICE_QUERY_STATUS.
[[nodiscard]] bool ZopReadServiceState(SC_HANDLE service, SERVICE_STATUS_PROCESS& state);

}  // namespace zop
