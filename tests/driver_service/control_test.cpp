#include <cstdlib>

#include "driver_set_up.h"
#include "process_counts.h"

namespace zotest {
namespace {

// All functions in an order in which a program may call them, with what they give and the rights that they ask the
// service manager and the service for.
const Rows<int32_t (*)(), int32_t, DWORD, DWORD> kLifeOfADriver = {
    {"install a missing file", [] { return Install(L"C:\\missing.sys"); }, ZOP_E_DRIVER_NOT_FOUND, 0, 0},
    {"install", [] { return Install(); }, ZOP_OK, 0xF003F, 0},
    {"install again", [] { return Install(); }, ZOP_OK, 0xF003F, 0xF01FF},
    {"disable", [] { return ZoProtector_ChangeDriverStartType(ZOP_START_DISABLED); }, ZOP_OK, 1, 2},
    {"start a disabled one", ZoProtector_StartDriver, ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_DISABLED), 1, 0x10},
    {"enable", [] { return ZoProtector_ChangeDriverStartType(ZOP_START_DEMAND); }, ZOP_OK, 1, 2},
    {"start", ZoProtector_StartDriver, ZOP_OK, 1, 0x10},
    {"start again", ZoProtector_StartDriver, ZOP_OK, 1, 0x10},
    // The last service handle that a status query opens is the one for the file's version.
    {"query", [] { return static_cast<int32_t>(DriverStatus().state); }, ZOP_DRIVER_RUNNING, 1, 1},
    {"initialise", ZoProtector_Initialize, ZOP_OK, 0, 0},
    {"uninstall", ZoProtector_UninstallDriver, ZOP_OK, 0xF003F, 0xF01FF},
    {"use the channel", [] { return ZoProtector_SetMasterEnabled(1); }, ZOP_E_NOT_INITIALIZED, 0, 0},
    {"start without a service", ZoProtector_StartDriver, ZOP_E_DRIVER_NOT_FOUND, 1, 0x10},
    {"stop without a service", ZoProtector_StopDriver, ZOP_E_DRIVER_NOT_FOUND, 1, 0x24},
    {"change without a service", [] { return ZoProtector_ChangeDriverStartType(2); }, ZOP_E_DRIVER_NOT_FOUND, 1, 2},
    {"query without a service", [] { return static_cast<int32_t>(DriverStatus().state); }, 0, 1, 5},
};

class ServiceControl : public BareSystemTest {};

TEST_F(ServiceControl, EachFunctionAsksForTheRightsThatItNeeds) {
    DWORD managerAccess = 0;
    DWORD serviceAccess = 0;
    const ImportHook manager("OpenSCManagerW", OpenSCManagerW, [&](auto machine, auto database, DWORD access) {
        return OpenSCManagerW(machine, database, managerAccess = access);
    });
    const ImportHook service("OpenServiceW", OpenServiceW, [&](auto openManager, auto name, DWORD access) {
        return OpenServiceW(openManager, name, serviceAccess = access);
    });
    for (const auto& [name, call, expected, expectedManager, expectedService] : kLifeOfADriver) {
        SCOPED_TRACE(name);
        managerAccess = serviceAccess = 0;
        EXPECT_EQ(call(), expected);
        EXPECT_EQ(managerAccess, expectedManager);
        EXPECT_EQ(serviceAccess, expectedService);
    }
    EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), "");
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

TEST_F(ServiceControl, NoFunctionLeavesAHandleOpen) {
    const ImportHook noSleep("Sleep", Sleep, [](DWORD) {});
    uint32_t before = 0;
    const int rounds = std::getenv("ZO_LONG") != nullptr ? 100 : 1;
    for (int round = 0; round <= rounds; ++round) {
        for (const auto& [name, call, expected, expectedManager, expectedService] : kLifeOfADriver)
            EXPECT_EQ(call(), expected) << name;
        if (round == 0) before = OpenHandleCount();  // the first calls may leave handles of the platform's own
    }
    EXPECT_EQ(OpenHandleCount(), before);
}

class StopDriver : public InstalledDriverTest {
  protected:
    // What the service manager answers to the library's next queries; 0 is a query that fails, and after the last one
    // come true answers. A real driver passes through most states too quickly to be seen.
    std::vector<DWORD> states_;
    std::vector<DWORD> sleeps_;

  private:
    BOOL Answer(BOOL done, SERVICE_STATUS_PROCESS& status) {
        if (states_.empty()) return done;
        status.dwCurrentState = states_.front();
        status.dwProcessId = 4711;
        states_.erase(states_.begin());
        return status.dwCurrentState != 0;
    }
    const ImportHook query_{"QueryServiceStatusEx", QueryServiceStatusEx,
                            [this](auto service, auto level, BYTE* buffer, auto... rest) {
                                return Answer(QueryServiceStatusEx(service, level, buffer, rest...),
                                              *reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer));
                            }};
    const ImportHook sleep_{"Sleep", Sleep, [this](DWORD milliseconds) { sleeps_.push_back(milliseconds); }};
};

TEST_F(StopDriver, AsksThirtyTimesHalfASecondApart) {
    const Rows<std::vector<DWORD>, int32_t, std::size_t> rows = {
        {"is stopped already", {}, ZOP_OK, 0},
        {"stops after a failing query", {SERVICE_RUNNING, SERVICE_STOP_PENDING, 0, SERVICE_STOPPED}, ZOP_OK, 4},
        {"stops at the last query", std::vector<DWORD>(29, SERVICE_STOP_PENDING), ZOP_OK, 30},
        {"never stops", std::vector<DWORD>(30, 0), static_cast<int32_t>(0x8007041D), 30},
    };
    for (const auto& [name, answers, expected, queries] : rows) {
        SCOPED_TRACE(name);
        if (queries != 0) {
            ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        }
        states_ = answers;
        sleeps_.clear();
        EXPECT_EQ(ZoProtector_StopDriver(), expected);
        EXPECT_EQ(sleeps_, std::vector<DWORD>(queries, 500));
        EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_STOPPED);
    }
}

TEST_F(StopDriver, ThatIsRefusedDoesNotKeepTheServiceFromBeingRemoved) {
    SetImagePath(SimulatorFile().wstring());  // so that the installed file is not in use
    ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
    {
        const ImportHook control("ControlService", FailWith<ERROR_INVALID_SERVICE_CONTROL>);
        EXPECT_EQ(ZoProtector_StopDriver(), ZOP_STATUS_FROM_WIN32(ERROR_INVALID_SERVICE_CONTROL));
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
        EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK) << "it is marked for deletion already";
    }
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_RUNNING);
    EXPECT_EQ(Install(), ZOP_STATUS_FROM_WIN32(ERROR_SERVICE_MARKED_FOR_DELETE));
}

class QueryDriverStatus : public StopDriver {};

TEST_F(QueryDriverStatus, ShowsStateAndProcess) {
    for (DWORD state = 0; state <= 8; ++state) {
        states_ = {state};
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.state, state >= 1 && state <= 4 ? state : ZOP_DRIVER_STATE_UNKNOWN);
        EXPECT_EQ(status.processId, state == 0 ? 0u : 4711u);
    }
}

class StartType : public InstalledDriverTest {};

TEST_F(StartType, IsAllThatChanges) {
    ZoProtectorDriverStatus expected = DriverStatus();
    for (const uint32_t startType : {0u, 1u, 2u, 3u, 5u, 4u}) {
        EXPECT_EQ(ZoProtector_ChangeDriverStartType(startType), ZOP_OK);
        expected.startType = startType <= 4 ? startType : ZOP_START_DEMAND;
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0) << startType;
        EXPECT_EQ(ReadValue(kServiceKey, L"ErrorControl"), NumberValue(SERVICE_ERROR_NORMAL));
    }
}

}  // namespace
}  // namespace zotest
