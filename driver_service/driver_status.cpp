// ZoProtector_QueryDriverStatus: what the service manager, the registry and the driver's file say.

#include <algorithm>
#include <iterator>
#include <string_view>

#include "driver_paths.h"
#include "file_version.h"
#include "owned_handles.h"
#include "service_access.h"
#include "service_errors.h"
#include "service_names.h"
#include "zoprotector.h"

namespace zop {
namespace {

using AltitudeText = decltype(ZoProtectorDriverStatus::altitude);

std::uint32_t DriverState(DWORD serviceState) {
    return serviceState >= SERVICE_STOPPED && serviceState <= SERVICE_RUNNING ? serviceState : ZOP_DRIVER_STATE_UNKNOWN;
}

void FillState(SC_HANDLE service, ZoProtectorDriverStatus& status) {
    SERVICE_STATUS_PROCESS state{};
    if (!ZopReadServiceState(service, state)) return;
    status.state = DriverState(state.dwCurrentState);
    status.processId = state.dwProcessId;
}

void FillConfig(SC_HANDLE service, ZoProtectorDriverStatus& status) {
    const zo::HeapBlock block = ZopReadServiceConfig(service);
    const auto* config = block.As<QUERY_SERVICE_CONFIGW>();
    if (config == nullptr) return;
    status.startType = config->dwStartType <= SERVICE_DISABLED ? config->dwStartType : ZOP_START_DEMAND;
    if (config->lpBinaryPathName == nullptr) return;
    const std::wstring_view path = config->lpBinaryPathName;
    path.copy(status.imagePath, std::size(status.imagePath) - 1);  // the record is zeroed, so this ends it
}

// Stays empty when there is none, when it is not text, or when it is longer than the field.
void ReadAltitude(AltitudeText& altitude) {
    zo::OwnedRegistryKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstanceKey, 0, KEY_READ, key.Out()) != ERROR_SUCCESS) return;

    AltitudeText text{};  // a failing read may leave part of the value behind
    DWORD type = REG_NONE;
    DWORD size = sizeof(text);
    if (RegQueryValueExW(key.Get(), L"Altitude", nullptr, &type, reinterpret_cast<BYTE*>(text), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ) {
        return;
    }
    text[std::size(text) - 1] = L'\0';
    std::copy(std::begin(text), std::end(text), altitude);
}

bool IsInstanceRegistered() {
    AltitudeText altitude{};
    ReadAltitude(altitude);
    return altitude[0] != L'\0';
}

void FillFileVersion(ZoProtectorDriverStatus& status) {
    ZopPathBuffer path;
    ZopFileVersion version;
    // The status is useful without the version, so failures are ignored; the fields then stay 0.
    if (ZopConfiguredImagePath(path) < 0 || ZopReadFileVersion(path.Text(), version) < 0) return;
    status.fileVersionMajor = version.major;
    status.fileVersionMinor = version.minor;
    status.fileVersionBuild = version.build;
    status.fileVersionRevision = version.revision;
}

}  // namespace
}  // namespace zop

int32_t ZoProtector_QueryDriverStatus(ZoProtectorDriverStatus* status) {
    using namespace zop;
    if (status == nullptr) return ZOP_E_INVALID_ARG;
    *status = {};
    status->state = ZOP_DRIVER_STATE_UNKNOWN;
    status->startType = ZOP_START_DEMAND;

    ZopDriverService driver;
    const DWORD error = ZopOpenDriverService(SC_MANAGER_CONNECT, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS, driver);
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
        status->state = ZOP_DRIVER_NOT_INSTALLED;
        return ZOP_OK;
    }
    if (error != ERROR_SUCCESS) return ZopMapServiceError(error);

    FillState(driver.service.Get(), *status);
    FillConfig(driver.service.Get(), *status);
    ReadAltitude(status->altitude);
    status->instanceRegistered = IsInstanceRegistered() ? 1 : 0;
    FillFileVersion(*status);
    return ZOP_OK;
}
