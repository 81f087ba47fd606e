#include "driver_channel.h"

namespace zotest {
namespace {

constexpr std::uint32_t kStatusFailed = 0xC0000001;
constexpr std::uint32_t kStatusOverflow = 0x80000005;

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

TEST_F(SimulatorControl, FaultsStrikeWhereAndAsOftenAsTheyAreToldTo) {
    ZoSimFault fault{0, 1, ZOSIM_FOR_EVER, ZOSIM_FAULT_STATUS | ZOSIM_FAULT_PERFORM, kStatusFailed, 0, 0, 0, {}};
    Simulator().FailNext(ZOP_IOCTL_FORCE_CRASH, 0xC0000022, 2);
    Simulator().AddFault(fault);
    const ZopToggleRecord on{1};
    // The first fault fits the crash alone; then one command passes, and all others are carried out and failed.
    const std::uint32_t crashErrors[] = {5, 5, 0, 31, 31};
    for (const std::uint32_t error : crashErrors)
        EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), error);
    EXPECT_EQ(Simulator().State().forceCrashes, 3u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, on), 31u);
    EXPECT_EQ(Simulator().State().faultsPending, 1u);
    Simulator().ClearFaults();
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);

    fault.times = 0;
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault)).error, 87u);
    fault.times = 1;
    for (std::uint32_t i = 0; i < ZOSIM_FAULTS_KEPT; ++i)
        Simulator().AddFault(fault);
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault)).error, 1816u);
}

TEST_F(SimulatorControl, RepliesMayBeShortOverLongWrongOrLate) {
    Simulator().SetVersion(1, 7, 3);
    constexpr std::uint32_t kOld = 0xEEEEEEEE, kPerform = ZOSIM_FAULT_PERFORM, kWords = ZOSIM_FAULT_WORDS;
    // flags and status, byte count and second word (77) of the fault; then what arrives in a buffer of 0xEE
    struct {
        std::uint32_t flags, status, returned, error, count, words[3];
    } const cases[] = {
        {kPerform, 0, 4, 0, 4, {1, kOld, kOld}},
        {kPerform, 0, 0, 0, 0, {kOld, kOld, kOld}},
        {kPerform, 0, 100, 0, 100, {1, 7, 3}},
        {kPerform | kWords, 0, 12, 0, 12, {1, 77, 3}},
        {kPerform, kStatusOverflow, 12, 234, 12, {1, 7, 3}},
        {kPerform, kStatusFailed, 12, 31, 0, {kOld, kOld, kOld}},
        {kWords, kStatusOverflow, 12, 234, 12, {0, 77, 0}},  // a reply that the command had no part in
    };
    for (const auto& c : cases) {
        const std::uint32_t flags = c.flags | ZOSIM_FAULT_RETURNED | (c.status != 0 ? ZOSIM_FAULT_STATUS : 0);
        Simulator().AddFault({ZOP_IOCTL_GET_VERSION, 0, 1, flags, c.status, c.returned, 0, 2, {0, 77}});
        std::uint32_t buffer[64];
        memset(buffer, 0xEE, sizeof(buffer));
        const IoResult result = Send(ZOP_IOCTL_GET_VERSION, nullptr, 0, buffer, 12);
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(result.error, c.error);
        EXPECT_EQ(result.returned, c.count);
        EXPECT_EQ(memcmp(buffer, c.words, 12), 0);
        for (std::size_t i = 3; i < std::size(buffer); ++i)
            ASSERT_EQ(buffer[i], kOld);
    }
    Simulator().AddFault({0, 0, 1, ZOSIM_FAULT_DELAY, 0, 0, 120, 0, {}});
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(Give(0x8000C400), 1u);
    EXPECT_GE(GetTickCount64() - begin, 100u);
    std::uint32_t block[19] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).error, 0u);
    EXPECT_EQ(block[1 + ZOSIM_COUNTER_REFUSED], 1u) << "refused by the driver itself, though late";
}

TEST_F(SimulatorControl, RemembersTheLastRequestsWithAllThatWasSent) {
    EXPECT_THROW((void)Simulator().LastRequest(), std::runtime_error);
    const ZopPidRecord pid{77, 5};
    std::uint8_t reply[8];
    EXPECT_EQ(Send(ZOP_IOCTL_QUERY_PID_SIGNATURE, &pid, 8, reply, 8).error, 1168u);
    ZoSimRequest last = Simulator().LastRequest();
    ZoSimRequest expected{1, ZOP_IOCTL_QUERY_PID_SIGNATURE, 8, 8, 0xC0000225, 0, GetCurrentProcessId(), {}};
    memcpy(expected.in, &pid, sizeof(pid));
    EXPECT_EQ(memcmp(&last, &expected, sizeof(last)), 0);

    std::vector<std::uint8_t> longInput(5000, 0xAB);
    EXPECT_EQ(Send(ZOP_IOCTL_REPLACE_FILE, longInput.data(), 5000).error, 87u);
    last = Simulator().LastRequest();
    EXPECT_EQ(last.inLength, 5000u);
    EXPECT_EQ(last.in[ZOSIM_REQUEST_BYTES - 1], 0xAB);

    for (std::uint32_t i = 0; i < ZOSIM_REQUESTS_KEPT + 10; ++i) {
        EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{i, 0}), 0u);
    }
    EXPECT_EQ(Simulator().RequestCount(), ZOSIM_REQUESTS_KEPT + 12u);
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
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 2000);
    Simulator().FailNext(ZOSIM_ANY_CODE, kStatusFailed);
    Simulator().SetPidSignature({1, 1, 1, 1, 1, 0});
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 100, 100);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 31u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{0}), 0u);
    ASSERT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
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
        SCOPED_TRACE(life);
        {
            const SimulatorClient simulator;
            EXPECT_EQ(simulator.State().tableCount[ZOSIM_TABLE_OVERRIDE], 0u);
            EXPECT_EQ(simulator.Settings().version[2], 1u) << "the version of the file";
            const zo::OwnedFile handle = OpenDriver();
            ASSERT_TRUE(handle);
            EXPECT_EQ(SendControl(handle.Get(), ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, "12345678", 8).error, 0u);
            simulator.InjectEvents(ZOSIM_RING_EVENTS, 10);
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
