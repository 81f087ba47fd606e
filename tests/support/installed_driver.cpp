#include "installed_driver.h"

#include <memory>

#include "format.h"
#include "loaded_library.h"

namespace zotest {
namespace {

void Require(bool done, const char* step) {
    const DWORD error = GetLastError();
    if (!done) throw std::runtime_error(zo::Format("driver fixture: {} failed, error {}", step, error));
}

zo::OwnedService OpenManager() {
    zo::OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    Require(static_cast<bool>(manager), "OpenSCManagerW");
    return manager;
}

bool WaitForState(const zo::OwnedService& service, DWORD state) {
    SERVICE_STATUS status{};
    for (int i = 0; i < 200 && QueryServiceStatus(service.Get(), &status); ++i) {
        if (status.dwCurrentState == state) return true;
        Sleep(25);
    }
    return false;
}

bool StopService(const zo::OwnedService& service) {
    SERVICE_STATUS status{};
    return ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) && WaitForState(service, SERVICE_STOPPED);
}

std::unique_ptr<InstalledDriver> suiteDriver;

}  // namespace

std::wstring NtPath(const std::wstring& path) {
    wchar_t device[MAX_PATH];
    if (QueryDosDeviceW(path.substr(0, 2).c_str(), device, MAX_PATH) == 0) throw std::runtime_error("no such drive");
    return device + path.substr(2);
}

std::wstring InstalledDriverPath() {
    wchar_t folder[MAX_PATH];
    GetSystemDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\drivers\\ZoProtectorDriver.sys";
}

zo::OwnedService OpenDriverService() {
    return zo::OwnedService(OpenServiceW(OpenManager().Get(), kServiceName, SERVICE_ALL_ACCESS));
}

void RemoveDriverService() {
    if (const zo::OwnedService service = OpenDriverService()) {
        StopService(service);
        DeleteService(service.Get());
    }
    DeleteFileW(InstalledDriverPath().c_str());
}

InstalledDriver::InstalledDriver(const std::wstring& fileName) {
    RemoveDriverService();
    const std::wstring target = InstalledDriverPath();
    Require(CopyFileW((ProgramFolder() / fileName).c_str(), target.c_str(), FALSE), "CopyFileW");
    {
        const zo::OwnedService service(CreateServiceW(
            OpenManager().Get(), kServiceName, kServiceName, SERVICE_ALL_ACCESS, SERVICE_FILE_SYSTEM_DRIVER,
            SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, target.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        Require(static_cast<bool>(service), "CreateServiceW");
    }
    Start();
}

void InstalledDriver::Start() {
    const zo::OwnedService service = OpenDriverService();
    Require(StartServiceW(service.Get(), 0, nullptr) && WaitForState(service, SERVICE_RUNNING), "starting the driver");
}

void InstalledDriver::Stop() {
    Require(StopService(OpenDriverService()), "stopping the driver");
}

void DriverTest::SetUpTestSuite() {
    suiteDriver = std::make_unique<InstalledDriver>();
}

void DriverTest::TearDownTestSuite() {
    suiteDriver.reset();
}

}  // namespace zotest
