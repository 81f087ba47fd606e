#include "installed_driver.h"

#include <memory>

#include "format.h"
#include "loaded_library.h"

namespace zotest {
namespace {

[[noreturn]] void Fail(const char* step) {
    const DWORD error = GetLastError();
    throw std::runtime_error(zo::Format("driver fixture: {} failed, error {}", step, error));
}

zo::OwnedService OpenManager() {
    zo::OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) Fail("OpenSCManagerW");
    return manager;
}

zo::OwnedService OpenDriverService() {
    zo::OwnedService service(OpenServiceW(OpenManager().Get(), kServiceName, SERVICE_ALL_ACCESS));
    if (!service) Fail("OpenServiceW");
    return service;
}

bool WaitForState(SC_HANDLE service, DWORD state) {
    SERVICE_STATUS status{};
    for (int i = 0; i < 200; ++i) {
        if (!QueryServiceStatus(service, &status)) return false;
        if (status.dwCurrentState == state) return true;
        Sleep(25);
    }
    return false;
}

std::unique_ptr<InstalledDriver> suiteDriver;

}  // namespace

std::wstring InstalledDriverPath() {
    wchar_t folder[MAX_PATH];
    GetSystemDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\drivers\\ZoProtectorDriver.sys";
}

void RemoveDriverService() {
    {
        const zo::OwnedService manager = OpenManager();
        const zo::OwnedService service(OpenServiceW(manager.Get(), kServiceName, SERVICE_ALL_ACCESS));
        if (service) {
            SERVICE_STATUS status{};
            if (ControlService(service.Get(), SERVICE_CONTROL_STOP, &status)) {
                WaitForState(service.Get(), SERVICE_STOPPED);
            }
            DeleteService(service.Get());
        }
    }
    DeleteFileW(InstalledDriverPath().c_str());
}

InstalledDriver::InstalledDriver(const std::wstring& fileName) {
    RemoveDriverService();
    const std::wstring target = InstalledDriverPath();
    const std::wstring source = (ProgramFolder() / fileName).wstring();
    if (!CopyFileW(source.c_str(), target.c_str(), FALSE)) Fail("CopyFileW");
    {
        const zo::OwnedService service(CreateServiceW(
            OpenManager().Get(), kServiceName, kServiceName, SERVICE_ALL_ACCESS, SERVICE_FILE_SYSTEM_DRIVER,
            SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, target.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        if (!service) Fail("CreateServiceW");
    }
    try {
        Start();
    } catch (...) {
        RemoveDriverService();
        throw;
    }
}

InstalledDriver::~InstalledDriver() {
    RemoveDriverService();
}

void InstalledDriver::Start() {
    const zo::OwnedService service = OpenDriverService();
    if (!StartServiceW(service.Get(), 0, nullptr)) Fail("StartServiceW");
    if (!WaitForState(service.Get(), SERVICE_RUNNING)) Fail("waiting for the driver to run");
}

void InstalledDriver::Stop() {
    const zo::OwnedService service = OpenDriverService();
    SERVICE_STATUS status{};
    if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &status)) Fail("ControlService");
    if (!WaitForState(service.Get(), SERVICE_STOPPED)) Fail("waiting for the driver to stop");
}

void DriverTest::SetUpTestSuite() {
    suiteDriver = std::make_unique<InstalledDriver>();
}

void DriverTest::TearDownTestSuite() {
    suiteDriver.reset();
}

}  // namespace zotest
