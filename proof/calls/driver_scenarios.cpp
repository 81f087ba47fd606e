// The driver as a service and as a device: install, control, query, upgrade, and the channel's commands.

#include "fault_scenarios.h"
#include "format.h"
#include "installed_driver.h"
#include "loaded_library.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace zoproof {
namespace {

namespace fs = std::filesystem;

const std::wstring& Driver() {
    static const std::wstring path = (zotest::ProgramFolder() / L"ZoProtectorDriver.sys").wstring();
    return path;
}
const std::wstring& NewerDriver() {
    static const std::wstring path = (zotest::ProgramFolder() / L"ZoProtectorDriver_1_0_1.sys").wstring();
    return path;
}

void Nothing() {}
std::string Fine() {
    return {};
}

void Require(std::int32_t status, const char* what) {
    if (status < 0) throw std::runtime_error(zo::Format("{} gives {:08X}", what, zo::Bits(status)));
}

void Install() {
    Require(ZoProtector_InstallDriver(Driver().c_str(), ZOP_START_DEMAND, nullptr, 1), "installing the driver");
}
void InstallAndStart() {
    Install();
    Require(ZoProtector_StartDriver(), "starting the driver");
}
void OpenChannel() {
    InstallAndStart();
    Require(ZoProtector_Initialize(), "opening the channel");
}

// When the service manager does not answer, the file next to the program counts as the installed one and is upgraded.
// It is what the other scenarios install, so it is put back.
std::string TheDriverFilesAreWhole() {
    static const std::string old = zotest::ReadFileBytes(zotest::InstalledDriverPath());
    static const std::string newer = zotest::ReadFileBytes(NewerDriver());
    for (const std::wstring& file : {zotest::InstalledDriverPath(), Driver()}) {
        const std::string bytes = zotest::ReadFileBytes(file);
        if (bytes != old && bytes != newer) return "a driver file is neither the old nor the new one";
    }
    zotest::WriteFileBytes(Driver(), old);
    return {};
}

void InstallOld() {
    ZoProtector_UninstallDriver();
    Install();
    static_cast<void>(TheDriverFilesAreWhole());  // remembers the old one at the first call
}

// A failed or half-done opening can leave the log file open, and memory that runs out for the last log line leaves the
// channel open. One more round closes both.
std::string ClosesInTheEnd() {
    ZoProtector_Initialize();
    ZoProtector_Uninitialize();
    return {};
}

std::int32_t ChangeRules() {
    std::int32_t status = ZoProtector_AddFileProtectByFolder(L"C:\\Suite", 1, L"*.exe");
    if (status >= 0) status = ZoProtector_AddRegistryProtectByKey(L"HKCU\\Software\\Suite", 1);
    if (status >= 0) status = ZoProtector_ClearAllFileProtect();
    if (status >= 0) status = ZoProtector_ClearAllRegistryProtect();
    return status;
}
void OpenWithoutRules() {
    OpenChannel();
    ZoProtector_ClearAllFileProtect();
    ZoProtector_ClearAllRegistryProtect();
}

std::int32_t ReadBack() {
    std::uint8_t records[4 * 2344];
    std::uint32_t count = 0, total = 0, dropped = 0;
    ZopStats stats{};
    std::int32_t status = ZoProtector_ListFileProtectRules(records, 1, &count, &total);
    if (status >= 0) status = ZoProtector_DrainEvents(0, records, 2, &count, &total, &dropped);
    if (status >= 0) status = ZoProtector_GetStats(&stats);
    return status;
}

std::int32_t Identify() {
    wchar_t text[65];
    return ZoProtector_GetHardwareId(text, 65);
}

std::int32_t Query() {
    ZoProtectorDriverStatus status;
    return ZoProtector_QueryDriverStatus(&status);
}

std::int32_t ReadVersion() {
    std::uint32_t part[4];
    return ZoProtector_GetDriverFileVersion(part, part + 1, part + 2, part + 3);
}

std::int32_t Upgrade() {
    return ZoProtector_UpgradeDriver(NewerDriver().c_str(), nullptr, nullptr);
}

}  // namespace

std::vector<Scenario> DriverScenarios(const fs::path& folder) {
    const std::wstring copyTo = (folder / "copy").wstring();
    const std::wstring copyFrom = (folder / "from").wstring();
    zotest::WriteFileBytes(folder / "from" / "file", "bytes");
    return {
        {"install", [] { ZoProtector_UninstallDriver(); },
         [] { return ZoProtector_InstallDriver(Driver().c_str(), ZOP_START_DEMAND, nullptr, 1); }, Fine},
        {"install again", Install, [] { return ZoProtector_InstallDriver(Driver().c_str(), ZOP_START_AUTO, L"1", 0); },
         Fine},
        {"query", Install, Query, Fine},
        {"file version", Install, ReadVersion, Fine},
        {"change start type", Install, [] { return ZoProtector_ChangeDriverStartType(ZOP_START_DEMAND); }, Fine},
        {"start", InstallAndStart, ZoProtector_StartDriver, Fine},
        {"stop", InstallAndStart, ZoProtector_StopDriver, Fine},
        {"upgrade", InstallOld, Upgrade, TheDriverFilesAreWhole},
        {"open the channel", InstallAndStart, ZoProtector_Initialize, ClosesInTheEnd},
        {"change rules", OpenWithoutRules, ChangeRules, Fine},
        {"read back", OpenChannel, ReadBack, Fine},
        {"protect itself", OpenWithoutRules, ZoProtector_AddDriverSelfProtect, Fine},
        {"copy by driver", OpenChannel,
         [=] { return ZoProtector_CopyDirectory(copyFrom.c_str(), copyTo.c_str(), 1, 1, nullptr, nullptr, nullptr); },
         Fine},
        {"hardware id", Nothing, Identify, Fine},
        {"uninstall", Install, ZoProtector_UninstallDriver, Fine},
    };
}

}  // namespace zoproof
