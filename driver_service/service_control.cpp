#include "service_control.h"

#include "driver_paths.h"
#include "service_access.h"
#include "service_errors.h"
#include "service_names.h"
#include "zoprotector.h"

namespace zop {

std::int32_t ZopStopAndWait(SC_HANDLE service) {
    constexpr DWORD kPollMilliseconds = 500;
    constexpr int kPolls = 30;

    SERVICE_STATUS ignored{};
    if (!ControlService(service, SERVICE_CONTROL_STOP, &ignored)) {
        const DWORD error = GetLastError();
        return error == ERROR_SERVICE_NOT_ACTIVE ? ZOP_OK : ZopMapServiceError(error);
    }
    for (int poll = 0; poll < kPolls; ++poll) {
        Sleep(kPollMilliseconds);
        SERVICE_STATUS_PROCESS state{};
        if (ZopReadServiceState(service, state) && state.dwCurrentState == SERVICE_STOPPED) return ZOP_OK;
    }
    return ZopMapServiceError(ERROR_SERVICE_REQUEST_TIMEOUT);
}

namespace {

// Stops and deletes the service; one that does not exist, or is marked for deletion already, counts as deleted.
std::int32_t RemoveService() {
    ZopDriverService driver;
    const DWORD error = ZopOpenDriverService(SC_MANAGER_ALL_ACCESS, SERVICE_ALL_ACCESS, driver);
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) return ZOP_OK;
    if (error != ERROR_SUCCESS) return ZopMapServiceError(error);

    // A service that does not stop can still be deleted: it is then gone after the next restart.
    static_cast<void>(ZopStopAndWait(driver.service.Get()));
    if (DeleteService(driver.service.Get())) return ZOP_OK;
    const DWORD deleteError = GetLastError();
    return deleteError == ERROR_SERVICE_MARKED_FOR_DELETE ? ZOP_OK : ZopMapServiceError(deleteError);
}

// The service manager removes the whole key once nobody holds the service open; until then this leaves no instance.
std::int32_t RemoveMinifilterInstances() {
    // ERROR_KEY_DELETED: the service manager removed it first.
    const auto isMissing = [](LSTATUS error) {
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_KEY_DELETED;
    };
    zo::OwnedRegistryKey service;
    LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kServiceKey, 0, KEY_READ | KEY_WRITE, service.Out());
    if (error == ERROR_SUCCESS) error = RegDeleteTreeW(service.Get(), kInstancesKeyName);
    return isMissing(error) ? ZOP_OK : ZopMapServiceError(static_cast<DWORD>(error));
}

}  // namespace
}  // namespace zop

int32_t ZoProtector_StartDriver(void) {
    using namespace zop;
    ZopDriverService driver;
    if (const DWORD error = ZopOpenDriverService(SC_MANAGER_CONNECT, SERVICE_START, driver); error != ERROR_SUCCESS) {
        return ZopMapServiceError(error);
    }
    if (StartServiceW(driver.service.Get(), 0, nullptr)) return ZOP_OK;
    const DWORD error = GetLastError();
    return error == ERROR_SERVICE_ALREADY_RUNNING ? ZOP_OK : ZopMapServiceError(error);
}

int32_t ZoProtector_StopDriver(void) {
    using namespace zop;
    ZopDriverService driver;
    if (const DWORD error = ZopOpenDriverService(SC_MANAGER_CONNECT, SERVICE_STOP | SERVICE_QUERY_STATUS, driver);
        error != ERROR_SUCCESS) {
        return ZopMapServiceError(error);
    }
    return ZopStopAndWait(driver.service.Get());
}

int32_t ZoProtector_UninstallDriver(void) {
    using namespace zop;
    ZoProtector_Uninitialize();  // an open handle of ours would keep the driver loaded
    if (const int32_t status = RemoveService(); status < 0) return status;
    if (const int32_t status = RemoveMinifilterInstances(); status < 0) return status;

    ZopPathBuffer installed;
    if (const int32_t status = ZopInstalledPath(installed); status < 0) return status;
    DeleteFileW(installed.Text());  // may be missing already, or in use until the next restart
    return ZOP_OK;
}

int32_t ZoProtector_ChangeDriverStartType(uint32_t startType) {
    using namespace zop;
    ZopDriverService driver;
    if (const DWORD error = ZopOpenDriverService(SC_MANAGER_CONNECT, SERVICE_CHANGE_CONFIG, driver);
        error != ERROR_SUCCESS) {
        return ZopMapServiceError(error);
    }
    if (ChangeServiceConfigW(driver.service.Get(), SERVICE_NO_CHANGE, ZopServiceStartType(startType), SERVICE_NO_CHANGE,
                             nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
        return ZOP_OK;
    }
    return ZopMapServiceError(GetLastError());
}
