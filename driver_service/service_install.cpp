// ZoProtector_InstallDriver: copies the file to the drivers folder, registers the service and its instance.

#include <cwchar>

#include "copy_driver_file.h"
#include "driver_paths.h"
#include "owned_handles.h"
#include "service_access.h"
#include "service_control.h"
#include "service_errors.h"
#include "service_names.h"
#include "zoprotector.h"

namespace zop {
namespace {

constexpr REGSAM kReadWrite = KEY_READ | KEY_WRITE;

std::int32_t ChooseSourcePath(const wchar_t* given, ZopPathBuffer& path) {
    if (given == nullptr || *given == L'\0') return ZopDefaultSourcePath(path);
    return path.Assign(given) ? ZOP_OK : ZOP_E_INVALID_ARG;
}

// A file of the same size counts as the same driver, so that reinstalling does not touch a file that is in use.
bool HaveSameSize(const ZopPathBuffer& first, const ZopPathBuffer& second) {
    WIN32_FILE_ATTRIBUTE_DATA a{};
    WIN32_FILE_ATTRIBUTE_DATA b{};
    return GetFileAttributesExW(first.Text(), GetFileExInfoStandard, &a) &&
           GetFileAttributesExW(second.Text(), GetFileExInfoStandard, &b) && a.nFileSizeHigh == b.nFileSizeHigh &&
           a.nFileSizeLow == b.nFileSizeLow;
}

std::int32_t PlaceDriverFile(const ZopPathBuffer& source, const ZopPathBuffer& installed) {
    if (HaveSameSize(source, installed)) return ZOP_OK;
    return ZopMapServiceError(ZopCopyDriverFile(source.Text(), installed.Text()));
}

std::int32_t ReconfigureService(SC_HANDLE manager, DWORD startType, const ZopPathBuffer& installed,
                                zo::OwnedService& service) {
    service.Reset(OpenServiceW(manager, kServiceName, SERVICE_ALL_ACCESS));
    if (!service) return ZopMapServiceError(GetLastError());
    if (ChangeServiceConfigW(service.Get(), SERVICE_FILE_SYSTEM_DRIVER, startType, SERVICE_ERROR_NORMAL,
                             installed.Text(), kLoadOrderGroup, nullptr, nullptr, nullptr, nullptr,
                             kServiceDisplayName)) {
        return ZOP_OK;
    }
    return ZopMapServiceError(GetLastError());
}

std::int32_t CreateOrReconfigureService(SC_HANDLE manager, DWORD startType, const ZopPathBuffer& installed,
                                        zo::OwnedService& service) {
    service.Reset(CreateServiceW(manager, kServiceName, kServiceDisplayName, SERVICE_ALL_ACCESS,
                                 SERVICE_FILE_SYSTEM_DRIVER, startType, SERVICE_ERROR_NORMAL, installed.Text(),
                                 kLoadOrderGroup, nullptr, nullptr, nullptr, nullptr));
    if (service) return ZOP_OK;
    const DWORD error = GetLastError();
    if (error != ERROR_SERVICE_EXISTS) return ZopMapServiceError(error);
    return ReconfigureService(manager, startType, installed, service);
}

LSTATUS SetText(HKEY key, const wchar_t* name, const wchar_t* text) {
    const auto size = static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t));
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), size);
}

LSTATUS SetNumber(HKEY key, const wchar_t* name, DWORD number) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
}

LSTATUS OpenServiceKey(zo::OwnedRegistryKey& key) {
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, kServiceKey, 0, kReadWrite, key.Out());
}

LSTATUS CreateSubkey(HKEY parent, const wchar_t* name, zo::OwnedRegistryKey& key) {
    return RegCreateKeyExW(parent, name, 0, nullptr, REG_OPTION_NON_VOLATILE, kReadWrite, nullptr, key.Out(), nullptr);
}

LSTATUS WriteInstance(HKEY instances, const wchar_t* altitude) {
    zo::OwnedRegistryKey instance;
    LSTATUS error = CreateSubkey(instances, kInstanceName, instance);
    if (error == ERROR_SUCCESS) error = SetText(instance.Get(), L"Altitude", altitude);
    if (error == ERROR_SUCCESS) error = SetNumber(instance.Get(), L"Flags", 0);
    return error;
}

// What the filter manager reads when the driver registers itself as a minifilter.
LSTATUS RegisterMinifilterInstance(const wchar_t* altitude) {
    zo::OwnedRegistryKey instances;
    {
        zo::OwnedRegistryKey service;
        LSTATUS error = OpenServiceKey(service);
        if (error == ERROR_SUCCESS) error = CreateSubkey(service.Get(), kInstancesKeyName, instances);
        if (error != ERROR_SUCCESS) return error;
    }
    if (const LSTATUS error = SetText(instances.Get(), L"DefaultInstance", kInstanceName); error != ERROR_SUCCESS) {
        return error;
    }
    return WriteInstance(instances.Get(), altitude);
}

LSTATUS WriteAllowUnload(bool allowUnload) {
    zo::OwnedRegistryKey service;
    const LSTATUS error = OpenServiceKey(service);
    return error == ERROR_SUCCESS ? SetNumber(service.Get(), L"AllowUnload", allowUnload ? 1 : 0) : error;
}

std::int32_t RegisterService(const ZopPathBuffer& installed, std::uint32_t startType, const wchar_t* altitude,
                             bool allowUnload) {
    ZopDriverService driver;
    if (const DWORD error = ZopOpenServiceManager(SC_MANAGER_ALL_ACCESS, driver.manager); error != ERROR_SUCCESS) {
        return ZopMapServiceError(error);
    }
    if (const std::int32_t status =
            CreateOrReconfigureService(driver.manager.Get(), ZopServiceStartType(startType), installed, driver.service);
        status < 0) {
        return status;
    }
    LSTATUS error = RegisterMinifilterInstance(altitude);
    if (error == ERROR_SUCCESS) error = WriteAllowUnload(allowUnload);
    return ZopMapServiceError(static_cast<DWORD>(error));
}

}  // namespace
}  // namespace zop

int32_t ZoProtector_InstallDriver(const wchar_t* sourcePath, uint32_t startType, const wchar_t* altitude,
                                  uint32_t allowUnload) {
    using namespace zop;
    ZopPathBuffer source;
    if (const int32_t status = ChooseSourcePath(sourcePath, source); status < 0) return status;
    if (GetFileAttributesW(source.Text()) == INVALID_FILE_ATTRIBUTES) return ZOP_E_DRIVER_NOT_FOUND;

    ZopPathBuffer installed;
    if (const int32_t status = ZopInstalledPath(installed); status < 0) return status;
    if (const int32_t status = PlaceDriverFile(source, installed); status < 0) return status;

    const bool hasAltitude = altitude != nullptr && *altitude != L'\0';
    return RegisterService(installed, startType, hasAltitude ? altitude : kDefaultAltitude, allowUnload != 0);
}
