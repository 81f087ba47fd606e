#include <algorithm>
#include <cstdlib>
#include <vector>

#include "driver_set_up.h"
#include "handle_count.h"
#include "import_hook.h"

namespace {

using zotest::DriverStatus;
using zotest::InstalledDriverPath;
using zotest::ReadFileBytes;
using zotest::WriteFileBytes;

const std::wstring kServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector";
const std::wstring kInstanceKey = kServiceKey + L"\\Instances\\ZoProtector Instance";

int32_t Install(const wchar_t* source = nullptr) {
    return ZoProtector_InstallDriver(source, 3, nullptr, 0);
}

// A registry value as one character for its type and then its bytes; empty when there is none.
std::string ReadValue(const std::wstring& key, const wchar_t* name) {
    char bytes[512];
    DWORD type = REG_NONE;
    DWORD size = sizeof(bytes);
    const LSTATUS error = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_ANY, &type, bytes, &size);
    return error == ERROR_SUCCESS ? static_cast<char>(type) + std::string(bytes, size) : std::string();
}

std::string Text(const std::wstring& text) {
    return char{REG_SZ} + std::string(reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * 2);
}

std::string Number(char value) {
    return {REG_DWORD, value, 0, 0, 0};
}

class BareService : public zotest::BareSystemTest {};

TEST_F(BareService, InstallDriver_WritesServiceInstanceAndFile) {
    const struct {
        uint32_t startType;
        const wchar_t* altitude;
        uint32_t allowUnload;
        DWORD expectedStart;
        const wchar_t* expectedAltitude;
    } rows[] = {
        {3, nullptr, 0, 3, L"385100"},
        {0, L"", 1, 0, L"385100"},
        {4, L"no number \x00E9", 256, 4, L"no number \x00E9"},
        {7, L"385101.5", 0, 3, L"385101.5"},
    };
    wchar_t imagePath[MAX_PATH] = {};
    ExpandEnvironmentStringsW(L"%SystemRoot%\\System32\\drivers\\ZoProtectorDriver.sys", imagePath, MAX_PATH);
    for (const auto& row : rows) {  // the first installs, the others install again
        SCOPED_TRACE(row.startType);
        ASSERT_EQ(ZoProtector_InstallDriver(nullptr, row.startType, row.altitude, row.allowUnload), ZOP_OK);

        alignas(QUERY_SERVICE_CONFIGW) BYTE block[4096];
        DWORD needed = 0;
        auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block);
        ASSERT_TRUE(QueryServiceConfigW(zotest::OpenService().Get(), config, sizeof(block), &needed));
        EXPECT_EQ(config->dwServiceType, DWORD{SERVICE_FILE_SYSTEM_DRIVER});
        EXPECT_EQ(config->dwStartType, row.expectedStart);
        EXPECT_EQ(config->dwErrorControl, DWORD{SERVICE_ERROR_NORMAL});
        EXPECT_STREQ(config->lpBinaryPathName, imagePath);
        EXPECT_STREQ(config->lpLoadOrderGroup, L"FSFilter Activity Monitor");
        EXPECT_STREQ(config->lpDisplayName, L"ZoProtector Driver");

        EXPECT_EQ(ReadValue(kServiceKey + L"\\Instances", L"DefaultInstance"), Text(L"ZoProtector Instance"));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), Text(row.expectedAltitude));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Flags"), Number(0));
        EXPECT_EQ(ReadValue(kServiceKey, L"AllowUnload"), Number(row.allowUnload != 0));
        EXPECT_TRUE(ReadFileBytes(InstalledDriverPath()) == ReadFileBytes(zotest::SimulatorFile()));

        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.state, ZOP_DRIVER_STOPPED);
        EXPECT_EQ(status.startType, row.expectedStart);
        EXPECT_EQ(status.instanceRegistered, 1u);
        EXPECT_STREQ(status.altitude, row.expectedAltitude);
        EXPECT_STREQ(status.imagePath, imagePath);
    }
}

TEST_F(BareService, InstallDriver_TakesAFileOfTheSameSizeForTheSameDriverAndRefusesWhatCannotBeCopied) {
    const zotest::TempFolder folder;
    const std::wstring source = (folder / L"driver.sys").wstring();
    WriteFileBytes(source, "new");
    for (const char* before : {"old", "older"}) {
        WriteFileBytes(InstalledDriverPath(), before);
        EXPECT_EQ(Install(source.c_str()), ZOP_OK);
        EXPECT_EQ(ReadFileBytes(InstalledDriverPath()), strlen(before) == 3 ? "old" : "new");
    }
    ASSERT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);

    constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    const std::wstring longest = L"C:\\" + std::wstring(252, L'x') + L".sys";  // 259 characters
    wchar_t root[MAX_PATH] = {};
    GetEnvironmentVariableW(L"SystemRoot", root, MAX_PATH);
    const struct {
        std::wstring source;
        std::wstring systemRoot;
        int32_t expected;
    } rows[] = {
        {longest + L"x", root, ZOP_E_INVALID_ARG},
        {longest, root, ZOP_E_DRIVER_NOT_FOUND},
        {L"C:\\", root, ZOP_E_ACCESS_DENIED},  // a folder is no driver
        {L"", L"", ZOP_STATUS_FROM_WIN32(ERROR_ENVVAR_NOT_FOUND)},
        {L"", std::wstring(240, L'r'), kDoesNotFit},
        {L"", std::wstring(300, L'r'), kDoesNotFit},
        {L"", L"C:\\no such folder", ZOP_E_DRIVER_NOT_FOUND},
        {L"", root, ZOP_STATUS_FROM_WIN32(ERROR_SHARING_VIOLATION)},
    };
    WriteFileBytes(InstalledDriverPath(), "in use");
    const zo::OwnedFile inUse = zotest::Hold(InstalledDriverPath(), FILE_SHARE_READ);
    for (const auto& row : rows) {
        const zotest::ScopedEnvironment systemRoot(L"SystemRoot", row.systemRoot);
        EXPECT_EQ(Install(row.source.c_str()), row.expected) << &row - rows;
    }
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_NOT_INSTALLED);
}

// A driver file from read-only media.
TEST_F(BareService, InstallDriver_ClearsTheReadOnlyAttributeOfTheCopy) {
    const zotest::TempFolder folder;
    const std::wstring source = (folder / L"driver.sys").wstring();
    WriteFileBytes(source, "read only");
    SetFileAttributesW(source.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(Install(source.c_str()), ZOP_OK);
    EXPECT_EQ(GetFileAttributesW(InstalledDriverPath().c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_NE(GetFileAttributesW(source.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(BareService, WithoutAService_EachFunctionSaysSo) {
    const ZoProtectorDriverStatus status = DriverStatus();
    ZoProtectorDriverStatus expected{};
    expected.startType = ZOP_START_DEMAND;
    EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0);
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_EQ(ZoProtector_ChangeDriverStartType(2), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_EQ(ZoProtector_QueryDriverStatus(nullptr), ZOP_E_INVALID_ARG);

    // Uninstalling clears what lies about, as far as it is not in use.
    WriteFileBytes(InstalledDriverPath(), "left behind");
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str(), L"Altitude", REG_SZ, L"1", 4);
    {
        const zo::OwnedFile inUse = zotest::Hold(InstalledDriverPath(), FILE_SHARE_READ);
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    }
    EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), "");
    EXPECT_TRUE(std::filesystem::exists(InstalledDriverPath()));
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey.c_str());
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

TEST_F(BareService, OverAndOver_EachFunctionAsksForTheRightsItNeedsAndLeavesNothing) {
    const struct {
        int32_t (*call)();
        int32_t expected;
        DWORD manager;
        DWORD service;
    } rows[] = {
        {[] { return Install(L"C:\\missing.sys"); }, ZOP_E_DRIVER_NOT_FOUND, 0, 0},
        {[] { return Install(); }, ZOP_OK, 0xF003F, 0},
        {[] { return Install(); }, ZOP_OK, 0xF003F, 0xF01FF},
        {[] { return ZoProtector_StartDriver(); }, ZOP_OK, 1, 0x10},
        {[] { return ZoProtector_StartDriver(); }, ZOP_OK, 1, 0x10},
        {[] { return static_cast<int32_t>(DriverStatus().state); }, ZOP_DRIVER_RUNNING, 1, 1},
        {[] { return ZoProtector_Initialize(); }, ZOP_OK, 0, 0},
        {[] { return ZoProtector_ChangeDriverStartType(3); }, ZOP_OK, 1, 2},
        {[] { return ZoProtector_UninstallDriver(); }, ZOP_OK, 0xF003F, 0xF01FF},
        {[] { return ZoProtector_SetMasterEnabled(1); }, ZOP_E_NOT_INITIALIZED, 0, 0},
        {[] { return ZoProtector_StartDriver(); }, ZOP_E_DRIVER_NOT_FOUND, 1, 0x10},
        {[] { return static_cast<int32_t>(DriverStatus().state); }, ZOP_DRIVER_NOT_INSTALLED, 1, 5},
    };
    const zotest::ImportHook manager("OpenSCManagerW", SeeManagerAccess);
    const zotest::ImportHook service("OpenServiceW", SeeServiceAccess);
    uint32_t before = 0;
    const int times = std::getenv("ZO_LONG") != nullptr ? 100 : 10;
    for (int i = 0; i <= times; ++i) {
        for (const auto& row : rows) {
            SCOPED_TRACE(&row - rows);
            managerAccess = serviceAccess = 0;
            EXPECT_EQ(row.call(), row.expected);
            EXPECT_EQ(managerAccess, row.manager);
            EXPECT_EQ(serviceAccess, row.service);
        }
        EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), "");
        EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
        if (i == 0) before = zotest::OpenHandleCount();  // the first calls may leave handles of the platform's own
    }
    EXPECT_EQ(zotest::OpenHandleCount(), before);
}

// What the service manager tells of the service's state, look by look; 0 is a look that fails, and beyond the last one
// is the truth. A real driver passes through most states too quickly to be seen.
std::vector<DWORD> states;

BOOL WINAPI TellState(SC_HANDLE service, SC_STATUS_TYPE level, BYTE* buffer, DWORD size, DWORD* needed) {
    const BOOL told = QueryServiceStatusEx(service, level, buffer, size, needed);
    if (states.empty()) return told;
    auto* status = reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer);
    status->dwCurrentState = states.front();
    status->dwProcessId = 4711;
    states.erase(states.begin());
    return status->dwCurrentState != 0;
}

std::vector<DWORD> sleeps;

void WINAPI SeeSleep(DWORD milliseconds) {
    sleeps.push_back(milliseconds);
}

BOOL WINAPI RefuseControl(SC_HANDLE, DWORD, SERVICE_STATUS*) {
    SetLastError(ERROR_INVALID_SERVICE_CONTROL);
    return FALSE;
}

class InstalledService : public zotest::BareSystemTest {
  protected:
    void SetUp() override {
        BareSystemTest::SetUp();
        ASSERT_EQ(Install(), ZOP_OK);
    }
};

TEST_F(InstalledService, StateAndProcess_AreToldAndStoppingLooksThirtyTimesHalfASecondApart) {
    const zotest::ImportHook query("QueryServiceStatusEx", TellState);
    for (DWORD state = 0; state <= 8; ++state) {
        states = {state};
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.state, state >= 1 && state <= 4 ? state : ZOP_DRIVER_STATE_UNKNOWN);
        EXPECT_EQ(status.processId, state == 0 ? 0u : 4711u);
    }
    const zotest::ImportHook noSleep("Sleep", SeeSleep);
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_OK);
    EXPECT_TRUE(sleeps.empty()) << "what is stopped is not waited for";
    constexpr int32_t kTimedOut = static_cast<int32_t>(0x8007041D);
    const struct {
        std::vector<DWORD> told;
        int32_t expected;
        std::size_t looks;
    } rows[] = {
        {{SERVICE_RUNNING, SERVICE_STOP_PENDING, 0, SERVICE_STOPPED}, ZOP_OK, 4},
        {std::vector<DWORD>(29, SERVICE_STOP_PENDING), ZOP_OK, 30},
        {std::vector<DWORD>(30, 0), kTimedOut, 30},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        states = row.told;
        sleeps.clear();
        EXPECT_EQ(ZoProtector_StopDriver(), row.expected);
        EXPECT_EQ(sleeps, std::vector<DWORD>(row.looks, 500));
        EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_STOPPED);
    }
}

TEST_F(InstalledService, ChangeDriverStartType_ChangesNothingElse) {
    ZoProtectorDriverStatus expected = DriverStatus();
    for (const uint32_t startType : {0u, 1u, 2u, 3u, 5u, 4u}) {
        EXPECT_EQ(ZoProtector_ChangeDriverStartType(startType), ZOP_OK);
        expected.startType = startType <= 4 ? startType : 3;
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0) << startType;
    }
    EXPECT_EQ(ZoProtector_StartDriver(), ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_DISABLED));
}

TEST_F(InstalledService, QueryDriverStatus_ShowsOnlyAltitudesThatAreTextAndFit) {
    const std::wstring longest(63, L'9');
    const struct {
        std::string value;
        std::wstring expected;
    } rows[] = {
        {Text(longest), longest},
        {Text(longest + L"9"), L""},
        {Text(longest + L"9").substr(0, 129), longest},  // not terminated
        {Text(L""), L""},
        {char{REG_EXPAND_SZ} + Text(L"385100").substr(1), L""},
    };
    for (const auto& row : rows) {
        // Where a zero follows text that is not terminated, the platform counts it in; something else must follow here.
        const std::string followed = row.value.substr(1) + "after";
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str(), L"Altitude", static_cast<DWORD>(row.value[0]),
                        followed.data(), static_cast<DWORD>(row.value.size() - 1));
        EXPECT_EQ(DriverStatus().altitude, row.expected);
        EXPECT_EQ(DriverStatus().instanceRegistered, row.expected.empty() ? 0u : 1u);
    }
    ASSERT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str()), ERROR_SUCCESS);
    EXPECT_EQ(DriverStatus().instanceRegistered, 0u);
}

using Version = std::array<uint32_t, 4>;

int32_t ReadVersion(Version& version) {
    version = {5, 5, 5, 5};
    return ZoProtector_GetDriverFileVersion(&version[0], &version[1], &version[2], &version[3]);
}

TEST_F(InstalledService, ImagePath_IsShownAsStoredAndResolvedForTheVersion) {
    WriteFileBytes(InstalledDriverPath(), zotest::DriverOfVersion({7, 8, 9, 65535}));
    constexpr Version kExpected = {7, 8, 9, 65535};
    for (const auto& stored : zotest::StoredImagePaths()) {
        SCOPED_TRACE(stored.name);
        zotest::SetImagePath(stored.text);
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.imagePath, stored.text);
        EXPECT_EQ(memcmp(&status.fileVersionMajor, kExpected.data(), sizeof(kExpected)), 0);
        Version version;
        EXPECT_EQ(ReadVersion(version), ZOP_OK);
        EXPECT_EQ(version, kExpected);
    }
}

TEST_F(InstalledService, ImagePath_IsCutInTheStatusWhenTooLong) {
    zotest::SetImagePath(std::wstring(600, L'p'));
    EXPECT_EQ(DriverStatus().imagePath, std::wstring(519, L'p'));
    Version version;
    EXPECT_EQ(ReadVersion(version), ZOP_E_DRIVER_NOT_FOUND);
}

TEST_F(InstalledService, GetDriverFileVersion_FailsForFilesWithoutAVersion) {
    const zotest::TempFolder folder;
    const std::wstring file = (folder / L"other.sys").wstring();
    zotest::SetImagePath(file);
    std::string cutBlock = zotest::DriverOfVersion({1, 2, 3, 4});
    cutBlock[zotest::FixedVersionOffset(cutBlock) - 38] = 51;  // the length that the root block claims
    const struct {
        const char* name;
        std::string bytes;
        std::vector<int32_t> expected;
    } rows[] = {
        {"no file", "", {ZOP_E_DRIVER_NOT_FOUND}},
        {"root block one byte short", cutBlock, {ZOP_E_DRIVER_NOT_FOUND}},
        {"no resource",
         "MZ",
         {ZOP_STATUS_FROM_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND), ZOP_STATUS_FROM_WIN32(ERROR_RESOURCE_TYPE_NOT_FOUND)}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (!row.bytes.empty()) WriteFileBytes(file, row.bytes);
        Version version;
        const int32_t status = ReadVersion(version);
        EXPECT_TRUE(std::ranges::count(row.expected, status)) << std::hex << status;
        EXPECT_EQ(version, Version{});
        EXPECT_EQ(DriverStatus().fileVersionMajor, 0u);
    }
}

TEST_F(InstalledService, GetDriverFileVersion_NeedsAllFourPointers) {
    for (int missing = 0; missing < 4; ++missing) {
        uint32_t number = 5;
        uint32_t* out[4] = {&number, &number, &number, &number};
        out[missing] = nullptr;
        EXPECT_EQ(ZoProtector_GetDriverFileVersion(out[0], out[1], out[2], out[3]), ZOP_E_INVALID_ARG);
        EXPECT_EQ(number, 5u);
    }
}

TEST_F(InstalledService, UninstallDriver_MarksAServiceThatRefusesToStop) {
    zotest::SetImagePath(zotest::SimulatorFile().wstring());  // so that the installed file is not in use
    ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
    {
        const zotest::ImportHook control("ControlService", RefuseControl);
        EXPECT_EQ(ZoProtector_StopDriver(), ZOP_STATUS_FROM_WIN32(ERROR_INVALID_SERVICE_CONTROL));
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK) << "marked already is deleted";
    }
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_RUNNING);
    EXPECT_EQ(Install(), ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_MARKED_FOR_DELETE));
}

TEST_F(InstalledService, StartDriver_WantsItsFile) {
    ASSERT_TRUE(DeleteFileW(InstalledDriverPath().c_str()));
    const int32_t status = ZoProtector_StartDriver();  // Windows tells that the file is missing, Wine that it is no DLL
    EXPECT_TRUE(status == ZOP_E_DRIVER_NOT_FOUND || status == ZOP_STATUS_FROM_WIN32(ERROR_DLL_INIT_FAILED)) << status;
}

}  // namespace
