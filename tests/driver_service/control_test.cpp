#include <cstdlib>
#include <vector>

#include "driver_set_up.h"
#include "handle_count.h"
#include "import_hook.h"
#include "rows.h"

namespace {

using zotest::DriverStatus;
using zotest::Install;

std::vector<DWORD> sleeps;

void WINAPI NoteSleep(DWORD milliseconds) {
    sleeps.push_back(milliseconds);
}

DWORD managerAccess;
DWORD serviceAccess;

SC_HANDLE WINAPI NoteManagerAccess(const wchar_t* machine, const wchar_t* database, DWORD access) {
    managerAccess = access;
    return OpenSCManagerW(machine, database, access);
}

SC_HANDLE WINAPI NoteServiceAccess(SC_HANDLE manager, const wchar_t* name, DWORD access) {
    serviceAccess = access;
    return OpenServiceW(manager, name, access);
}

// All functions in an order in which a program may call them, and the rights that they ask for.
const struct {
    const char* name;
    int32_t (*call)();
    int32_t expected;
    DWORD manager;
    DWORD service;
} kLifeOfADriver[] = {
    {"install a missing file", [] { return Install(L"C:\\missing.sys"); }, ZOP_E_DRIVER_NOT_FOUND, 0, 0},
    {"install", [] { return Install(); }, ZOP_OK, 0xF003F, 0},
    {"install again", [] { return Install(); }, ZOP_OK, 0xF003F, 0xF01FF},
    {"start", [] { return ZoProtector_StartDriver(); }, ZOP_OK, 1, 0x10},
    {"start again", [] { return ZoProtector_StartDriver(); }, ZOP_OK, 1, 0x10},
    // The last service handle that a status query opens is the one for the file's version.
    {"query", [] { return static_cast<int32_t>(DriverStatus().state); }, ZOP_DRIVER_RUNNING, 1, 1},
    {"initialise", [] { return ZoProtector_Initialize(); }, ZOP_OK, 0, 0},
    {"change the start type", [] { return ZoProtector_ChangeDriverStartType(3); }, ZOP_OK, 1, 2},
    {"uninstall", [] { return ZoProtector_UninstallDriver(); }, ZOP_OK, 0xF003F, 0xF01FF},
    {"use the channel", [] { return ZoProtector_SetMasterEnabled(1); }, ZOP_E_NOT_INITIALIZED, 0, 0},
    {"start without a service", [] { return ZoProtector_StartDriver(); }, ZOP_E_DRIVER_NOT_FOUND, 1, 0x10},
    {"stop without a service", [] { return ZoProtector_StopDriver(); }, ZOP_E_DRIVER_NOT_FOUND, 1, 0x24},
    {"change without a service", [] { return ZoProtector_ChangeDriverStartType(2); }, ZOP_E_DRIVER_NOT_FOUND, 1, 2},
    {"query without a service", [] { return static_cast<int32_t>(DriverStatus().state); }, 0, 1, 5},
};

class ServiceControl : public zotest::BareSystemTest {};

TEST_F(ServiceControl, EachFunctionAsksForTheRightsThatItNeeds) {
    const zotest::ImportHook manager("OpenSCManagerW", NoteManagerAccess);
    const zotest::ImportHook service("OpenServiceW", NoteServiceAccess);
    for (const auto& row : kLifeOfADriver) {
        SCOPED_TRACE(row.name);
        managerAccess = serviceAccess = 0;
        EXPECT_EQ(row.call(), row.expected);
        EXPECT_EQ(managerAccess, row.manager);
        EXPECT_EQ(serviceAccess, row.service);
    }
    EXPECT_EQ(zotest::ReadValue(zotest::kInstanceKey, L"Altitude"), "");
    EXPECT_FALSE(std::filesystem::exists(zotest::InstalledDriverPath()));
}

TEST_F(ServiceControl, NoFunctionLeavesAHandleOpen) {
    const zotest::ImportHook noSleep("Sleep", NoteSleep);
    uint32_t before = 0;
    const int rounds = std::getenv("ZO_LONG") != nullptr ? 100 : 1;
    for (int round = 0; round <= rounds; ++round) {
        for (const auto& row : kLifeOfADriver)
            EXPECT_EQ(row.call(), row.expected) << row.name;
        if (round == 0) before = zotest::OpenHandleCount();  // the first calls may leave handles of the platform's own
    }
    EXPECT_EQ(zotest::OpenHandleCount(), before);
}

// What the service manager answers to the library's next queries; 0 is a query that fails, and after the last one come
// true answers. A real driver passes through most states too quickly to be seen.
std::vector<DWORD> states;

BOOL WINAPI AnswerState(SC_HANDLE service, SC_STATUS_TYPE level, BYTE* buffer, DWORD size, DWORD* needed) {
    const BOOL done = QueryServiceStatusEx(service, level, buffer, size, needed);
    if (states.empty()) return done;
    auto* status = reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer);
    status->dwCurrentState = states.front();
    status->dwProcessId = 4711;
    states.erase(states.begin());
    return status->dwCurrentState != 0;
}

class StopDriver : public zotest::InstalledDriverTest {
  protected:
    void SetUp() override {
        InstalledDriverTest::SetUp();
        sleeps.clear();
    }

    const zotest::ImportHook query_{"QueryServiceStatusEx", AnswerState};
    const zotest::ImportHook noSleep_{"Sleep", NoteSleep};
};

TEST_F(StopDriver, DoesNotWaitForAStoppedService) {
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_OK);
    EXPECT_TRUE(sleeps.empty());
}

TEST_F(StopDriver, AsksThirtyTimesHalfASecondApart) {
    const zotest::Rows<std::vector<DWORD>, int32_t, std::size_t> rows = {
        {"stops after a failing query", {SERVICE_RUNNING, SERVICE_STOP_PENDING, 0, SERVICE_STOPPED}, ZOP_OK, 4},
        {"stops at the last query", std::vector<DWORD>(29, SERVICE_STOP_PENDING), ZOP_OK, 30},
        {"never stops", std::vector<DWORD>(30, 0), static_cast<int32_t>(0x8007041D), 30},
    };
    for (const auto& [name, answers, expected, queries] : rows) {
        SCOPED_TRACE(name);
        ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        states = answers;
        sleeps.clear();
        EXPECT_EQ(ZoProtector_StopDriver(), expected);
        EXPECT_EQ(sleeps, std::vector<DWORD>(queries, 500));
        EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_STOPPED);
    }
}

BOOL WINAPI RefuseControl(SC_HANDLE, DWORD, SERVICE_STATUS*) {
    SetLastError(ERROR_INVALID_SERVICE_CONTROL);
    return FALSE;
}

TEST_F(StopDriver, ReportsARefusal) {
    const zotest::ImportHook control("ControlService", RefuseControl);
    EXPECT_EQ(ZoProtector_StopDriver(), ZOP_STATUS_FROM_WIN32(ERROR_INVALID_SERVICE_CONTROL));
}

TEST_F(StopDriver, ThatIsRefusedDoesNotKeepTheServiceFromBeingRemoved) {
    zotest::SetImagePath(zotest::SimulatorFile().wstring());  // so that the installed file is not in use
    ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
    {
        const zotest::ImportHook control("ControlService", RefuseControl);
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK) << "it is marked for deletion already";
    }
    EXPECT_FALSE(std::filesystem::exists(zotest::InstalledDriverPath()));
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_RUNNING);
    EXPECT_EQ(Install(), ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_MARKED_FOR_DELETE));
}

class QueryDriverStatus : public StopDriver {};

TEST_F(QueryDriverStatus, ShowsStateAndProcess) {
    for (DWORD state = 0; state <= 8; ++state) {
        states = {state};
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.state, state >= 1 && state <= 4 ? state : ZOP_DRIVER_STATE_UNKNOWN);
        EXPECT_EQ(status.processId, state == 0 ? 0u : 4711u);
    }
}

class StartType : public zotest::InstalledDriverTest {};

TEST_F(StartType, IsAllThatChanges) {
    ZoProtectorDriverStatus expected = DriverStatus();
    for (const uint32_t startType : {0u, 1u, 2u, 3u, 5u, 4u}) {
        EXPECT_EQ(ZoProtector_ChangeDriverStartType(startType), ZOP_OK);
        expected.startType = startType <= 4 ? startType : ZOP_START_DEMAND;
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0) << startType;
    }
}

TEST_F(StartType, KeepsADisabledDriverFromStarting) {
    EXPECT_EQ(ZoProtector_ChangeDriverStartType(ZOP_START_DISABLED), ZOP_OK);
    EXPECT_EQ(ZoProtector_StartDriver(), ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_DISABLED));
}

}  // namespace
