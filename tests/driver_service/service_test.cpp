#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "driver_set_up.h"
#include "handle_count.h"
#include "import_hook.h"
#include "pending_service.h"

namespace {

using zotest::DriverStatus;
using zotest::InstalledDriverPath;
using zotest::ReadFileBytes;
using zotest::WriteFileBytes;

constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector";
constexpr wchar_t kInstanceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector\\Instances\\ZoProtector Instance";

struct RegistryValue {
    DWORD type = REG_NONE;
    std::string bytes;
    bool operator==(const RegistryValue&) const = default;
};

RegistryValue ReadValue(const std::wstring& key, const wchar_t* name) {
    char bytes[512];
    DWORD size = sizeof(bytes);
    RegistryValue value;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_ANY, &value.type, bytes, &size) == ERROR_SUCCESS) {
        value.bytes.assign(bytes, size);
    }
    return value;
}

RegistryValue Text(std::wstring_view text) {
    std::string bytes(reinterpret_cast<const char*>(text.data()), text.size() * 2);
    return {REG_SZ, bytes + std::string(2, '\0')};
}

RegistryValue Raw(DWORD type, std::string bytes) {
    return {type, std::move(bytes)};
}

RegistryValue Number(char value) {
    return {REG_DWORD, std::string{value, 0, 0, 0}};
}

// How long the library sleeps; with kSkip it does not really.
class SeenSleeps {
  public:
    enum Mode { kReal, kSkip };
    explicit SeenSleeps(Mode mode = kReal) {
        milliseconds.clear();
        mode_ = mode;
    }
    static inline std::vector<DWORD> milliseconds;

  private:
    static void WINAPI See(DWORD time) {
        milliseconds.push_back(time);
        if (mode_ == kReal) Sleep(time);
    }
    static inline Mode mode_ = kReal;
    const zotest::ImportHook hook_{"Sleep", See};
};

class DriverServiceTest : public zotest::BareSystemTest {};

TEST_F(DriverServiceTest, InstallDriver_WritesServiceInstanceAndFile) {
    const struct {
        uint32_t startType;
        const wchar_t* altitude;
        uint32_t allowUnload;
        DWORD expectedStart;
        const wchar_t* expectedAltitude;
    } rows[] = {
        {3, nullptr, 0, 3, L"385100"},
        {0, L"", 1, 0, L"385100"},
        {1, L"1", 0x80000000, 1, L"1"},
        {2, L"no number \x00E9", 256, 2, L"no number \x00E9"},
        {4, L" ", 0, 4, L" "},
        {7, L"385101.5", 0, 3, L"385101.5"},
        {0xFFFFFFFF, nullptr, 1, 3, L"385100"},
    };
    wchar_t systemRoot[MAX_PATH] = {};
    GetEnvironmentVariableW(L"SystemRoot", systemRoot, MAX_PATH);
    const std::wstring imagePath = std::wstring(systemRoot) + L"\\System32\\drivers\\ZoProtectorDriver.sys";
    for (const auto& row : rows) {  // the first installs, the others install again
        SCOPED_TRACE(row.startType);
        ASSERT_EQ(ZoProtector_InstallDriver(nullptr, row.startType, row.altitude, row.allowUnload), ZOP_OK);

        const zo::OwnedService service = zotest::OpenService(SERVICE_QUERY_CONFIG);
        alignas(QUERY_SERVICE_CONFIGW) BYTE block[4096];
        DWORD needed = 0;
        auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block);
        ASSERT_TRUE(QueryServiceConfigW(service.Get(), config, sizeof(block), &needed));
        EXPECT_EQ(config->dwServiceType, DWORD{SERVICE_FILE_SYSTEM_DRIVER});
        EXPECT_EQ(config->dwStartType, row.expectedStart);
        EXPECT_EQ(config->dwErrorControl, DWORD{SERVICE_ERROR_NORMAL});
        EXPECT_EQ(config->lpBinaryPathName, imagePath);
        EXPECT_STREQ(config->lpLoadOrderGroup, L"FSFilter Activity Monitor");
        EXPECT_STREQ(config->lpDisplayName, L"ZoProtector Driver");

        EXPECT_EQ(ReadValue(std::wstring(kServiceKey) + L"\\Instances", L"DefaultInstance"),
                  Text(L"ZoProtector Instance"));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), Text(row.expectedAltitude));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Flags"), Number(0));
        EXPECT_EQ(ReadValue(kServiceKey, L"AllowUnload"), Number(row.allowUnload != 0));
        EXPECT_TRUE(ReadFileBytes(InstalledDriverPath()) == ReadFileBytes(zotest::SimulatorFile()));

        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.state, ZOP_DRIVER_STOPPED);
        EXPECT_EQ(status.startType, row.expectedStart);
        EXPECT_EQ(status.instanceRegistered, 1u);
        EXPECT_STREQ(status.altitude, row.expectedAltitude);
        EXPECT_EQ(status.imagePath, imagePath);
    }
}

TEST_F(DriverServiceTest, InstallDriver_TakesAFileOfTheSameSizeForTheSameDriver) {
    const zotest::TempFolder folder;
    const std::wstring source = (folder / L"driver.sys").wstring();
    WriteFileBytes(source, "new");
    const struct {
        const char* before;
        const char* after;
    } rows[] = {{"old", "old"}, {"older", "new"}, {"", "new"}};
    for (const auto& row : rows) {
        WriteFileBytes(InstalledDriverPath(), row.before);
        EXPECT_EQ(ZoProtector_InstallDriver(source.c_str(), 3, nullptr, 0), ZOP_OK);
        EXPECT_EQ(ReadFileBytes(InstalledDriverPath()), row.after);
    }
}

TEST_F(DriverServiceTest, InstallDriver_RefusesWhatCannotBeCopied) {
    const std::wstring missing = L"C:\\" + std::wstring(252, L'x') + L".sys";  // 259 characters
    EXPECT_EQ(ZoProtector_InstallDriver((missing + L"x").c_str(), 3, nullptr, 0), ZOP_E_INVALID_ARG);
    EXPECT_EQ(ZoProtector_InstallDriver(missing.c_str(), 3, nullptr, 0), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_EQ(ZoProtector_InstallDriver(L"C:\\", 3, nullptr, 0), ZOP_E_ACCESS_DENIED) << "a folder is no driver";

    const std::wstring almostFits(240, L'r');
    const std::wstring tooLong(300, L'r');
    const struct {
        const wchar_t* systemRoot;
        int32_t expected;
    } rows[] = {{nullptr, static_cast<int32_t>(0x800700CB)},
                {almostFits.c_str(), static_cast<int32_t>(0x8007007A)},
                {tooLong.c_str(), static_cast<int32_t>(0x8007007A)},
                {L"C:\\no such folder", ZOP_E_DRIVER_NOT_FOUND}};
    for (const auto& row : rows) {
        const zotest::ScopedVariable variable(L"SystemRoot", row.systemRoot);
        EXPECT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), row.expected);
    }
    WriteFileBytes(InstalledDriverPath(), "in use");
    const zo::OwnedFile inUse(
        CreateFileW(InstalledDriverPath().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), static_cast<int32_t>(0x80070020));
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_NOT_INSTALLED);
}

TEST_F(DriverServiceTest, WithoutAService_EachFunctionSaysSo) {
    const ZoProtectorDriverStatus status = DriverStatus();
    ZoProtectorDriverStatus expected{};
    expected.startType = ZOP_START_DEMAND;
    EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0);
    EXPECT_EQ(ZoProtector_StartDriver(), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_EQ(ZoProtector_ChangeDriverStartType(2), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_EQ(ZoProtector_QueryDriverStatus(nullptr), ZOP_E_INVALID_ARG);
}

TEST_F(DriverServiceTest, StartAndStop_RepeatedAreSuccess) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_RUNNING);
    }
    const SeenSleeps sleeps;
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_OK);
    EXPECT_EQ(sleeps.milliseconds, std::vector<DWORD>{500}) << "the first look comes after half a second";
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_STOPPED);
    sleeps.milliseconds.clear();
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_OK);
    EXPECT_TRUE(sleeps.milliseconds.empty()) << "what is stopped is not waited for";
}

TEST_F(DriverServiceTest, ChangeDriverStartType_ChangesNothingElse) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, L"7", 0), ZOP_OK);
    ZoProtectorDriverStatus expected = DriverStatus();
    for (const uint32_t startType : {0u, 1u, 2u, 4u, 5u, 3u}) {
        EXPECT_EQ(ZoProtector_ChangeDriverStartType(startType), ZOP_OK);
        expected.startType = startType <= 4 ? startType : 3;
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0) << startType;
    }
    ASSERT_EQ(ZoProtector_ChangeDriverStartType(4), ZOP_OK);
    EXPECT_EQ(ZoProtector_StartDriver(), ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_DISABLED));
}

TEST_F(DriverServiceTest, QueryDriverStatus_ShowsOnlyAltitudesThatAreTextAndFit) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    const std::wstring longest(63, L'9');
    const struct {
        RegistryValue value;
        std::wstring expected;
    } rows[] = {
        {Text(longest), longest},
        {Text(longest + L"9"), L""},
        {Raw(REG_SZ, Text(longest + L"9").bytes.substr(0, 128)), longest},  // not terminated
        {Text(L""), L""},
        {Raw(REG_EXPAND_SZ, Text(L"385100").bytes), L""},
        {Number(5), L""},
    };
    for (const auto& row : rows) {
        // Where a zero follows text that is not terminated, the platform counts it in; something else must follow here.
        const std::string followed = row.value.bytes + "after";
        ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey, L"Altitude", row.value.type, followed.data(),
                                  static_cast<DWORD>(row.value.bytes.size())),
                  ERROR_SUCCESS);
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.altitude, row.expected);
        EXPECT_EQ(status.instanceRegistered, row.expected.empty() ? 0u : 1u);
    }
    ASSERT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kInstanceKey), ERROR_SUCCESS);
    EXPECT_EQ(DriverStatus().instanceRegistered, 0u);
}

TEST_F(DriverServiceTest, ImagePath_KeepsItsPrefixInTheStatusAndLosesItForTheVersion) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    const zotest::TempFolder folder;
    const std::wstring file = (folder / L"other.sys").wstring();
    WriteFileBytes(file, zotest::DriverOfVersion({7, 8, 9, 65535}));
    for (const std::wstring prefix : {L"", L"\\??\\", L"\\\\?\\"}) {
        zotest::SetImagePath(prefix + file);
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.imagePath, prefix + file);
        uint32_t version[4] = {};
        EXPECT_EQ(ZoProtector_GetDriverFileVersion(&version[0], &version[1], &version[2], &version[3]), ZOP_OK);
        EXPECT_EQ(std::to_array(version), (std::array<uint32_t, 4>{7, 8, 9, 65535}));
        EXPECT_EQ(memcmp(version, &status.fileVersionMajor, sizeof(version)), 0);
    }
    const std::wstring tooLong(600, L'p');
    zotest::SetImagePath(tooLong);
    const ZoProtectorDriverStatus status = DriverStatus();
    EXPECT_EQ(status.imagePath, tooLong.substr(0, 519));
    EXPECT_EQ(status.fileVersionMajor + status.fileVersionMinor + status.fileVersionBuild + status.fileVersionRevision,
              0u);
}

TEST_F(DriverServiceTest, GetDriverFileVersion_TellsWhatIsWrongWithTheFile) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    const zotest::TempFolder folder;
    const std::wstring file = (folder / L"other.sys").wstring();
    zotest::SetImagePath(file);

    std::string cutBlock = zotest::DriverOfVersion({1, 2, 3, 4});
    cutBlock[zotest::FixedVersionOffset(cutBlock) - 38] = 51;  // the length that the root block claims
    const struct {
        const char* what;
        std::string bytes;
        std::vector<int32_t> expected;
    } rows[] = {
        {"missing", "", {ZOP_E_DRIVER_NOT_FOUND}},
        {"no resource",
         "MZ",
         {ZOP_STATUS_FROM_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND), ZOP_STATUS_FROM_WIN32(ERROR_RESOURCE_TYPE_NOT_FOUND)}},
        {"fixed part of 51 bytes", cutBlock, {ZOP_E_DRIVER_NOT_FOUND}},
    };
    for (const auto& row : rows) {
        if (!row.bytes.empty()) WriteFileBytes(file, row.bytes);
        uint32_t version[4] = {5, 5, 5, 5};
        const int32_t status = ZoProtector_GetDriverFileVersion(&version[0], &version[1], &version[2], &version[3]);
        EXPECT_NE(std::find(row.expected.begin(), row.expected.end(), status), row.expected.end())
            << row.what << " " << std::hex << status;
        EXPECT_EQ(std::to_array(version), (std::array<uint32_t, 4>{})) << row.what;
        EXPECT_EQ(DriverStatus().fileVersionMajor, 0u) << row.what;
    }
    uint32_t number = 5;
    for (int missing = 0; missing < 4; ++missing) {
        uint32_t* out[4] = {&number, &number, &number, &number};
        out[missing] = nullptr;
        EXPECT_EQ(ZoProtector_GetDriverFileVersion(out[0], out[1], out[2], out[3]), ZOP_E_INVALID_ARG);
    }
    EXPECT_EQ(number, 5u);
}

TEST_F(DriverServiceTest, StartDriver_WithoutItsFileFails) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    ASSERT_TRUE(DeleteFileW(InstalledDriverPath().c_str()));
    const int32_t status = ZoProtector_StartDriver();  // Windows tells that the file is missing, Wine that it is no DLL
    EXPECT_TRUE(status == ZOP_E_DRIVER_NOT_FOUND || status == ZOP_STATUS_FROM_WIN32(ERROR_DLL_INIT_FAILED)) << status;
}

TEST_F(DriverServiceTest, UninstallDriver_TakesAwayServiceKeysAndFile) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
    ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_EQ(ZoProtector_SetMasterEnabled(1), ZOP_E_NOT_INITIALIZED);
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_NOT_INSTALLED);
    EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), RegistryValue());
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

TEST_F(DriverServiceTest, UninstallDriver_WithoutAServiceStillClearsWhatLiesAbout) {
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    WriteFileBytes(InstalledDriverPath(), "left behind");
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey, L"Altitude", REG_SZ, L"1", 4);
    {
        const zo::OwnedFile inUse(CreateFileW(InstalledDriverPath().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
        EXPECT_TRUE(std::filesystem::exists(InstalledDriverPath()));
    }
    EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), RegistryValue());
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey);
}

// States that a driver passes through at once, held by a Win32 service under its name.
class PendingServiceTest : public DriverServiceTest {
  protected:
    void TearDown() override {
        End();
        DriverServiceTest::TearDown();
    }

    void Start(const std::wstring& behaviour, uint32_t state = ZOP_DRIVER_RUNNING) {
        const std::wstring command = L"\"" + (zotest::ProgramFolder() / L"pending_service.exe").wstring() + L"\" ";
        const zo::OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        end_.Reset(CreateEventW(nullptr, TRUE, FALSE, zotest::kEndPendingService));
        ResetEvent(end_.Get());  // the program before this one may not be gone yet
        const zo::OwnedService service(CreateServiceW(manager.Get(), zotest::kServiceName, L"test", SERVICE_ALL_ACCESS,
                                                      SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                                      SERVICE_ERROR_IGNORE, (command + behaviour).c_str(), nullptr,
                                                      nullptr, nullptr, nullptr, nullptr));
        ASSERT_TRUE(service) << GetLastError();
        ASSERT_TRUE(StartServiceW(service.Get(), 0, nullptr)) << GetLastError();
        WaitForState(state);
    }

    static void WaitForState(uint32_t state) {
        for (int i = 0; i < 200 && DriverStatus().state != state; ++i)
            Sleep(20);
    }

    // Lets the program end and waits for it.
    void End() {
        if (!end_) return;
        SetEvent(end_.Get());
        for (int i = 0; i < 200; ++i) {
            const uint32_t state = DriverStatus().state;
            if (state == ZOP_DRIVER_STOPPED || state == ZOP_DRIVER_NOT_INSTALLED) break;
            Sleep(20);
        }
        end_.Reset();
        zotest::RemoveDriverService();
    }

  private:
    zo::OwnedKernelObject end_;
};

TEST_F(PendingServiceTest, QueryDriverStatus_TellsStateAndProcess) {
    const struct {
        const wchar_t* behaviour;
        uint32_t state;
    } rows[] = {{L"starting", ZOP_DRIVER_START_PENDING},
                {L"running", ZOP_DRIVER_RUNNING},
                {L"paused", ZOP_DRIVER_STATE_UNKNOWN}};
    for (const auto& row : rows) {
        Start(row.behaviour, row.state);
        EXPECT_EQ(DriverStatus().state, row.state) << row.state;
        EXPECT_NE(DriverStatus().processId, 0u) << row.state;
        End();
    }
}

int queriesToFail;

BOOL WINAPI FailSomeQueries(SC_HANDLE service, SC_STATUS_TYPE level, BYTE* buffer, DWORD size, DWORD* needed) {
    if (queriesToFail-- > 0) return FALSE;
    return QueryServiceStatusEx(service, level, buffer, size, needed);
}

TEST_F(PendingServiceTest, StopDriver_WaitsForASlowStop) {
    Start(L"slow");
    const SeenSleeps sleeps;
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_OK);
    EXPECT_GE(sleeps.milliseconds.size(), 3u);
}

TEST_F(PendingServiceTest, StopDriver_GivesUpAfterThirtyLooks) {
    Start(L"stubborn");
    const SeenSleeps sleeps(SeenSleeps::kSkip);
    EXPECT_EQ(ZoProtector_StopDriver(), static_cast<int32_t>(0x8007041D));
    EXPECT_EQ(sleeps.milliseconds, std::vector<DWORD>(30, 500));
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_STOP_PENDING);
}

TEST_F(PendingServiceTest, StopDriver_CountsAStateThatCannotBeReadAsALook) {
    Start(L"running");
    const SeenSleeps sleeps(SeenSleeps::kSkip);
    const zotest::ImportHook query("QueryServiceStatusEx", FailSomeQueries);
    queriesToFail = 30;
    EXPECT_EQ(ZoProtector_StopDriver(), static_cast<int32_t>(0x8007041D));
    EXPECT_EQ(sleeps.milliseconds.size(), 30u);
    queriesToFail = 1;
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_STATE_UNKNOWN);
}

TEST_F(PendingServiceTest, UninstallDriver_MarksAServiceThatRefusesToStop) {
    Start(L"deaf");
    WriteFileBytes(InstalledDriverPath(), "driver");
    EXPECT_EQ(ZoProtector_StopDriver(), static_cast<int32_t>(0x8007041C));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK) << "marked already is deleted";
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_RUNNING);
    EXPECT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), static_cast<int32_t>(0x80070430));
    End();
    EXPECT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
}

DWORD managerAccess;
DWORD serviceAccess;

SC_HANDLE WINAPI SeeManagerAccess(const wchar_t* machine, const wchar_t* database, DWORD access) {
    managerAccess = access;
    return OpenSCManagerW(machine, database, access);
}

SC_HANDLE WINAPI SeeServiceAccess(SC_HANDLE manager, const wchar_t* name, DWORD access) {
    serviceAccess = access;
    return OpenServiceW(manager, name, access);
}

TEST_F(DriverServiceTest, EachFunctionAsksForTheRightsItNeeds) {
    ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
    uint32_t number;
    ZoProtectorDriverStatus status;
    const struct {
        std::function<int32_t()> call;
        DWORD manager;
        DWORD service;
    } rows[] = {
        {[] { return ZoProtector_InstallDriver(nullptr, 3, nullptr, 0); }, 0xF003F, 0xF01FF},
        {[] { return ZoProtector_StartDriver(); }, 1, 0x10},
        {[] { return ZoProtector_StopDriver(); }, 1, 0x24},
        {[] { return ZoProtector_ChangeDriverStartType(3); }, 1, 2},
        {[&] { return ZoProtector_GetDriverFileVersion(&number, &number, &number, &number); }, 1, 1},
        {[] { return ZoProtector_UninstallDriver(); }, 0xF003F, 0xF01FF},
        {[&] { return ZoProtector_QueryDriverStatus(&status); }, 1, 5},
    };
    const zotest::ImportHook manager("OpenSCManagerW", SeeManagerAccess);
    const zotest::ImportHook service("OpenServiceW", SeeServiceAccess);
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(row.call(), ZOP_OK);
        EXPECT_EQ(managerAccess, row.manager);
        EXPECT_EQ(serviceAccess, row.service);
    }
}

TEST_F(DriverServiceTest, InstallingAndRemovingManyTimes_LeavesNothing) {
    const auto once = [] {
        EXPECT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
        EXPECT_EQ(ZoProtector_InstallDriver(L"C:\\missing.sys", 3, nullptr, 0), ZOP_E_DRIVER_NOT_FOUND);
        EXPECT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_RUNNING);
        EXPECT_EQ(ZoProtector_StopDriver(), ZOP_OK);
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
        EXPECT_EQ(ZoProtector_StartDriver(), ZOP_E_DRIVER_NOT_FOUND);
    };
    once();  // the first call of each kind may leave handles of the platform's own
    const uint32_t before = zotest::OpenHandleCount();
    const int times = std::getenv("ZO_LONG") != nullptr ? 100 : 10;
    for (int i = 0; i < times; ++i)
        once();
    EXPECT_EQ(zotest::OpenHandleCount(), before);
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_NOT_INSTALLED);
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

}  // namespace
