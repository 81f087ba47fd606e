#include "driver_channel.h"

namespace zotest {
namespace {

constexpr std::uint32_t kStatusFailed = 0xC0000001;
constexpr std::uint32_t kStatusOverflow = 0x80000005;

class SimulatorControl : public ChannelTest {
  protected:
    [[nodiscard]] IoResult Version(ZopVersionReply& reply) const {
        return Send(ZOP_IOCTL_GET_VERSION, nullptr, 0, &reply, sizeof(reply));
    }
};

TEST_F(SimulatorControl, RefusesEveryWrongLengthAndUnsoundSettings) {
    struct {
        std::uint32_t code, in, out;
    } const shapes[] = {
        {ZOSIM_IOCTL_RESET, 0, 0},         {ZOSIM_IOCTL_GET_STATE, 0, 144},        {ZOSIM_IOCTL_GET_SETTINGS, 0, 96},
        {ZOSIM_IOCTL_SET_SETTINGS, 96, 0}, {ZOSIM_IOCTL_READ_REQUESTS, 8, 16},     {ZOSIM_IOCTL_READ_TABLE, 8, 16},
        {ZOSIM_IOCTL_ADD_FAULT, 48, 0},    {ZOSIM_IOCTL_CLEAR_FAULTS, 0, 0},       {ZOSIM_IOCTL_INJECT_EVENTS, 16, 0},
        {ZOSIM_IOCTL_SET_PRODUCER, 16, 0}, {ZOSIM_IOCTL_SET_PID_SIGNATURE, 24, 0}, {ZOSIM_IOCTL_SET_COUNTERS, 72, 0},
    };
    std::uint8_t bytes[256] = {};
    for (const auto& [code, in, out] : shapes) {
        EXPECT_EQ(Simulator().Send(code, bytes, in + 1, bytes, 256).error, 87u) << std::hex << code;
        if (out == 0) continue;
        EXPECT_EQ(Simulator().Send(code, bytes, in, bytes, out - 1).error, 122u) << std::hex << code;
    }
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
    ZopVersionReply version{};
    Simulator().FailNext(ZOP_IOCTL_GET_VERSION, kStatusFailed, 2);
    Simulator().FailNext(ZOP_IOCTL_FORCE_CRASH, 0xC0000022);
    EXPECT_EQ(Version(version).error, 31u);
    EXPECT_EQ(Version(version).error, 31u);
    EXPECT_EQ(Version(version).error, 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 5u);
    EXPECT_EQ(Simulator().State().forceCrashes, 0u) << "a fault's command is not carried out";
    EXPECT_EQ(Simulator().State().faultsPending, 0u);

    ZoSimFault fault{};
    fault.skip = 1;
    fault.times = ZOSIM_FOR_EVER;
    fault.flags = ZOSIM_FAULT_STATUS | ZOSIM_FAULT_PERFORM;
    fault.status = kStatusFailed;
    Simulator().AddFault(fault);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 31u);
    EXPECT_EQ(Simulator().State().forceCrashes, 4u) << "carried out, then failed";
    Simulator().ClearFaults();
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);

    fault.times = 0;
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault)).error, 87u);
    fault.times = 1;
    for (std::uint32_t i = 0; i < ZOSIM_FAULTS_KEPT; ++i)
        Simulator().AddFault(fault);
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault)).error, 1816u);
}

TEST_F(SimulatorControl, RepliesMayBeShortOverLongOrWrong) {
    Simulator().SetVersion(1, 7, 3);
    // returned, with a status or none: error, byte count and version numbers that arrive in a buffer of 0xEE
    constexpr std::uint32_t kOld = 0xEEEEEEEE;
    struct {
        std::uint32_t status, returned, error, count, major, patch;
    } const cases[] = {
        {0, 4, 0, 4, 1, kOld},
        {0, 0, 0, 0, kOld, kOld},
        {0, 12, 0, 12, 1, 3},
        {0, 100, 0, 100, 1, 3},
        {kStatusOverflow, 12, 234, 12, 1, 3},
        {kStatusFailed, 12, 31, 0, kOld, kOld},
    };
    for (const auto& c : cases) {
        ZoSimFault fault{};
        fault.code = ZOP_IOCTL_GET_VERSION;
        fault.times = 1;
        fault.flags = ZOSIM_FAULT_RETURNED | ZOSIM_FAULT_PERFORM | (c.status != 0 ? ZOSIM_FAULT_STATUS : 0);
        fault.status = c.status;
        fault.returned = c.returned;
        Simulator().AddFault(fault);
        struct {
            ZopVersionReply reply;
            std::uint8_t guard[200];
        } buffer;
        memset(&buffer, 0xEE, sizeof(buffer));
        const IoResult result = Version(buffer.reply);
        SCOPED_TRACE(testing::Message() << "status " << std::hex << c.status << " returned " << c.returned);
        EXPECT_EQ(result.error, c.error);
        EXPECT_EQ(result.returned, c.count);
        EXPECT_EQ(buffer.reply.major, c.major);
        EXPECT_EQ(buffer.reply.patch, c.patch);
        for (const std::uint8_t byte : buffer.guard)
            ASSERT_EQ(byte, 0xEE);
    }
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    Simulator().OverwriteWord(ZOP_IOCTL_DRAIN_EVENTS, 0, 300);
    Simulator().OverwriteWord(ZOP_IOCTL_DRAIN_EVENTS, 1, 12);
    for (int i = 0; i < 2; ++i) {  // one fault for each command
        std::uint8_t reply[16 + 562 * 4];
        const ZopDrainRequest request{0, 4};
        EXPECT_EQ(Send(ZOP_IOCTL_DRAIN_EVENTS, &request, 8, reply, sizeof(reply)).returned, 16u + 3 * 562u);
        ZopDrainReplyHeader header;
        memcpy(&header, reply, sizeof(header));
        EXPECT_EQ(header.count, i == 0 ? 300u : 3u);
        EXPECT_EQ(header.dropped, i == 0 ? 0u : 12u);
        EXPECT_EQ(header.position, 3u);
    }
}

// A reply that the command had no part in: the words are there, the rest of what the count promises is zero.
TEST_F(SimulatorControl, WordsAndByteCountMakeAReplyByThemselves) {
    ZoSimFault fault{};
    fault.times = 1;
    fault.flags = ZOSIM_FAULT_STATUS | ZOSIM_FAULT_RETURNED | ZOSIM_FAULT_WORDS;
    fault.status = kStatusOverflow;
    fault.returned = 12;
    fault.wordMask = 2;
    fault.words[1] = 77;
    Simulator().AddFault(fault);
    ZopVersionReply version{9, 9, 9};
    EXPECT_EQ(Version(version).error, 234u);
    const ZopVersionReply expected{0, 77, 0};
    EXPECT_EQ(memcmp(&version, &expected, sizeof(version)), 0);
}

TEST_F(SimulatorControl, ADelayHoldsTheCommandUp) {
    ZoSimFault fault{};
    fault.times = 2;
    fault.flags = ZOSIM_FAULT_DELAY;
    fault.delayMs = 120;
    Simulator().AddFault(fault);
    ZopVersionReply version{};
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(Version(version).error, 0u);
    EXPECT_GE(GetTickCount64() - begin, 100u);
    EXPECT_EQ(version.major, 1u);
    EXPECT_EQ(Give(0x8000C400), 1u);
    std::uint32_t block[19] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).error, 0u);
    EXPECT_EQ(block[1 + ZOSIM_COUNTER_REFUSED], 1u) << "refused by the driver itself, though late";
}

TEST_F(SimulatorControl, RemembersTheLastRequestsWithAllThatWasSent) {
    EXPECT_THROW((void)Simulator().LastRequest(), std::runtime_error);
    ZopPidRecord pid{77, 5};
    std::uint8_t reply[8];
    EXPECT_EQ(Send(ZOP_IOCTL_QUERY_PID_SIGNATURE, &pid, 8, reply, 8).error, 1168u);
    ZoSimRequest last = Simulator().LastRequest();
    EXPECT_EQ(last.sequence, 1u);
    EXPECT_EQ(last.code, ZOP_IOCTL_QUERY_PID_SIGNATURE);
    EXPECT_EQ(last.inLength, 8u);
    EXPECT_EQ(last.outLength, 8u);
    EXPECT_EQ(last.status, 0xC0000225u);
    EXPECT_EQ(last.returned, 0u);
    EXPECT_EQ(last.pid, GetCurrentProcessId());
    EXPECT_EQ(RecordOf<ZopPidRecord>(last).pid, 77u);
    EXPECT_EQ(RecordOf<ZopPidRecord>(last).reserved, 5u);

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

// What a caller sees whose driver vanishes under its handle, and that closing the handle afterwards harms nobody.
TEST(SimulatorLifecycle, AHandleOutlivesTheDriverAndOnlyFails) {
    InstalledDriver driver;
    zo::OwnedFile old = OpenDriver();
    ASSERT_TRUE(old);
    driver.Stop();
    std::uint8_t byte = 0;
    const IoResult result = SendControl(old.Get(), ZOP_IOCTL_GET_MASTER_ENABLED, nullptr, 0, &byte, 1);
    EXPECT_NE(result.error, 0u);
    EXPECT_EQ(result.returned, 0u);
    driver.Start();
    EXPECT_NE(SendControl(old.Get(), ZOP_IOCTL_GET_MASTER_ENABLED, nullptr, 0, &byte, 1).error, 0u);
    old.Reset();
    const zo::OwnedFile fresh = OpenDriver();
    EXPECT_EQ(SendControl(fresh.Get(), ZOP_IOCTL_GET_MASTER_ENABLED, nullptr, 0, &byte, 1).error, 0u);
    EXPECT_EQ(SimulatorClient().State().openNow, 1u);
}

}  // namespace
}  // namespace zotest
