#include <array>

#include "driver_channel.h"

namespace zotest {
namespace {

using SimulatorControl = ChannelTest;

TEST_F(SimulatorControl, RefusesUnsoundSettings) {
    ASSERT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
    const ZoSimSettings sound = Simulator().Settings();
    void (*const damages[])(ZoSimSettings&) = {
        [](ZoSimSettings& s) { s.statsVersion = 4; },
        [](ZoSimSettings& s) { s.resumeAfterOverrun = 2; },
        [](ZoSimSettings& s) { s.tableCapacity[1] = ZOSIM_MAX_CAPACITY + 1; },
        [](ZoSimSettings& s) { s.tableCapacity[ZOSIM_TABLE_DLL] = 0; },
        [](ZoSimSettings& s) { s.ringSlots[0] = 0; },
        [](ZoSimSettings& s) { s.ringSlots[1] = ZOP_REGISTRY_EVENT_RING_SIZE + 1; },
    };
    for (const auto damage : damages) {
        ZoSimSettings settings = sound;
        damage(settings);
        EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_SET_SETTINGS, &settings, sizeof(settings)).error, 87u);
    }
    const ZoSimSettings now = Simulator().Settings();
    EXPECT_EQ(memcmp(&now, &sound, sizeof(now)), 0);
}

// Short, over-long and rewritten replies are what the library's own tests are made of.
TEST_F(SimulatorControl, FaultsStrikeWhereAndAsOftenAsTheyAreToldTo) {
    ZoSimFault fault{0, 1, ZOSIM_FOR_EVER, ZOSIM_FAULT_STATUS | ZOSIM_FAULT_PERFORM, 0xC0000001, 0, 0, 0, {}};
    Simulator().FailNext(ZOP_IOCTL_FORCE_CRASH, 0xC0000022, 2);
    Simulator().AddFault(fault);
    // The first fault fits the crash alone; then one command passes, and all others are carried out and failed.
    for (const std::uint32_t error : {5u, 5u, 0u, 31u, 31u})
        EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), error);
    EXPECT_EQ(Simulator().State().forceCrashes, 3u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{1}), 31u);
    EXPECT_EQ(Simulator().State().faultsPending, 1u);
    Simulator().ClearFaults();
    Simulator().AddFault({0, 0, 1, ZOSIM_FAULT_DELAY, 0, 0, 120, 0, {}});
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(Give(0x8000C400), 1u) << "refused by the driver itself, though late";
    EXPECT_GE(GetTickCount64() - begin, 100u);

    fault.times = 0;
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault)).error, 87u);
    fault.times = 1;
    for (std::uint32_t i = 0; i < ZOSIM_FAULTS_KEPT; ++i)
        Simulator().AddFault(fault);
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault)).error, 1816u);
}

TEST_F(SimulatorControl, RemembersTheLastRequestsWithAllThatWasSent) {
    EXPECT_THROW((void)Simulator().LastRequest(), std::runtime_error);
    const ZopPidRecord pid{77, 5};
    std::uint8_t reply[8];
    EXPECT_EQ(Send(ZOP_IOCTL_QUERY_PID_SIGNATURE, &pid, 8, reply, 8).error, 1168u);
    const ZoSimRequest last = Simulator().LastRequest();
    ZoSimRequest expected{1, ZOP_IOCTL_QUERY_PID_SIGNATURE, 8, 8, 0xC0000225, 0, GetCurrentProcessId(), {77}};
    expected.in[4] = 5;
    EXPECT_EQ(memcmp(&last, &expected, sizeof(last)), 0);

    EXPECT_EQ(Give(ZOP_IOCTL_REPLACE_FILE, std::array<std::uint8_t, 5000>{}), 87u);
    EXPECT_EQ(Simulator().LastRequest().inLength, 5000u);
    for (std::uint32_t i = 0; i < ZOSIM_REQUESTS_KEPT + 10; ++i) {
        EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{i, 0}), 0u);
    }
    const std::vector<ZoSimRequest> all = Simulator().Requests();
    ASSERT_EQ(all.size(), ZOSIM_REQUESTS_KEPT);
    for (std::size_t i = 0; i < all.size(); ++i) {
        ASSERT_EQ(all[i].sequence, 13 + i);
        ASSERT_EQ(RecordOf<ZopPidRecord>(all[i]).pid, 10 + i);
    }
    EXPECT_EQ(Simulator().Requests(ZOSIM_REQUESTS_KEPT + 11).size(), 2u);
}

TEST_F(SimulatorControl, ResetLeavesNothingButTheOpenHandles) {
    const ZoSimSettings settingsBefore = Simulator().Settings();
    const ZoSimState before = Simulator().State();
    EXPECT_EQ(before.openNow, 1u);
    Simulator().SetVersion(2, 0, 0);
    Simulator().SetCapacity(ZOSIM_TABLE_FILE, 0);
    Simulator().SetPidSignature({1, 1, 1, 1, 1, 0});
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 100, 100);
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 2000);
    Simulator().FailNext(ZOP_IOCTL_GET_VERSION, 0xC0000001);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_SIGNATURE_POLICY, ZopPidRecord{0x0302, 0}), 0u);
    EXPECT_EQ(Simulator().State().signatureMode, 2u);
    Simulator().Reset();
    const ZoSimSettings settings = Simulator().Settings();
    const ZoSimState state = Simulator().State();
    EXPECT_EQ(memcmp(&settings, &settingsBefore, sizeof(settings)), 0);
    EXPECT_EQ(memcmp(&state, &before, sizeof(state)), 0);
    driver_.Reset();
    EXPECT_EQ(Simulator().State().openNow, 0u);
}

// Runs with a driver of its own: TearDownTestSuite of the fixture above takes the suite's one away first.
TEST(SimulatorLifecycle, UnloadingRemovesBothDevicesAndTheNextLifeStartsAfresh) {
    InstalledDriver driver(L"ZoProtectorDriver_1_0_1.sys");
    for (int life = 0; life < 2; ++life) {
        {
            const SimulatorClient simulator;
            EXPECT_EQ(simulator.State().requests, 0u);
            EXPECT_EQ(simulator.Settings().version[2], 1u) << "the version of the file";
            const zo::OwnedFile handle = OpenDriver();
            EXPECT_EQ(SendControl(handle.Get(), ZOP_IOCTL_FORCE_CRASH).error, 0u);
        }
        driver.Stop();
        EXPECT_FALSE(OpenDriver());
        EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
        EXPECT_THROW(SimulatorClient(), std::runtime_error);
        driver.Start();
    }
}

}  // namespace
}  // namespace zotest
