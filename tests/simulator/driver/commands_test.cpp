#include <array>
#include <set>

#include "driver_channel.h"

namespace zotest {
namespace {

// The commands of the driver, and those of its control device.
using SimulatorCommands = ChannelTest;
using SimulatorControl = ChannelTest;

// One check serves all commands; which lengths are right is seen where the library's requests are accepted.
TEST_F(SimulatorCommands, RefuseEveryWrongLength) {
    const struct {
        std::uint32_t code, in, out;
    } shapes[] = {
        {ZOP_IOCTL_ADD_FILE_RULE, 2341, 0}, {ZOP_IOCTL_CLEAR_FILE_RULES, 0, 0}, {ZOP_IOCTL_LIST_FILE_RULES, 0, 16},
        {ZOP_IOCTL_DRAIN_EVENTS, 8, 16},    {ZOP_IOCTL_GET_STATUS, 0, 20},      {ZOP_IOCTL_GET_STATS, 0, 76},
    };
    std::vector<std::uint8_t> in(4096), out(4096);
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape.code);
        for (const std::uint32_t wrong : {0u, shape.in - 1, shape.in + 1, 4000u}) {
            if (wrong == shape.in || wrong > in.size()) continue;
            EXPECT_EQ(Send(shape.code, in.data(), wrong, out.data(), 4096).error, 87u) << "input of " << wrong;
        }
        if (shape.out == 0) continue;
        EXPECT_EQ(Send(shape.code, in.data(), shape.in, out.data(), shape.out - 1).error, 122u);
    }
    EXPECT_EQ(Give(0x8000C400), 1u) << "a code that is no command";
}

// The rule families differ in their codes and record types alone. Removing and clearing are the next two codes.
struct Family {
    std::uint32_t table, add, record, key;
};
constexpr Family kFamilies[] = {
    {ZOSIM_TABLE_PROCESS, ZOP_IOCTL_ADD_PROCESS_RULE, 1042, 1040},
    {ZOSIM_TABLE_FILE, ZOP_IOCTL_ADD_FILE_RULE, 2341, 1040},
    {ZOSIM_TABLE_REGISTRY, ZOP_IOCTL_ADD_REGISTRY_RULE, 1025, 1024},
    {ZOSIM_TABLE_DLL, ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, 1041, 1040},
    {ZOSIM_TABLE_FILE_IGNORE, ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, 1042, 1040},
    {ZOSIM_TABLE_REGISTRY_IGNORE, ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, 1042, 1040},
};

class SimulatorRules : public ChannelTest {
  protected:
    // The name is the first text field of a record of the family's length.
    [[nodiscard]] std::uint32_t Add(const Family& family, std::wstring name) const {
        name.resize(2000);
        return Send(family.add, name.data(), family.record).error;
    }
    [[nodiscard]] std::uint32_t Remove(const Family& family, std::wstring name) const {
        name.resize(2000);
        return Send(family.add + 4, name.data(), family.key).error;
    }
};

TEST_F(SimulatorRules, EveryFamilyKeepsKnowsAndForgets) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.table);
        const std::wstring tooLong(family.key / 2, L'x');  // without a terminator
        EXPECT_EQ(Add(family, L"\\Device\\\u00E4"), 0u);
        EXPECT_EQ(Add(family, L"\\DEVICE\\\u00C4"), 183u) << "the same but for case, also beyond ASCII";
        EXPECT_EQ(Add(family, L"\\Device\\"), 0u) << "a beginning is another name";
        EXPECT_EQ(Add(family, tooLong.substr(1)), 0u);
        for (const std::wstring& unsound : {std::wstring(), tooLong}) {
            EXPECT_EQ(Add(family, unsound), 87u);
            EXPECT_EQ(Remove(family, unsound), 87u);
        }
        EXPECT_EQ(Remove(family, L"\\device\\\u00E4"), 0u);
        EXPECT_EQ(Remove(family, L"\\device\\\u00E4"), 1168u);

        Simulator().SetCapacity(family.table, 2);
        EXPECT_EQ(Add(family, L"\\Device\\Full"), 1816u);
        EXPECT_EQ(Add(family, L"\\Device\\"), 183u) << "a duplicate in a full table is a duplicate";
        EXPECT_EQ(Give(family.add + 8), 0u);
        EXPECT_EQ(Simulator().State().tableCount[family.table], 0u);
    }
}

TEST_F(SimulatorRules, AFileRuleIsTheSameWhenPathFilterAndScopeAre) {
    const struct {
        const wchar_t *path, *filter, *scope;
        std::uint32_t error;
    } cases[] = {
        {L"\\a", L"", L"", 0},         {L"\\a", L"*.exe", L"", 0},   {L"\\a", L"", L"\\s", 0},
        {L"\\a", L"*.exe", L"\\s", 0}, {L"\\a", L"*.EXE", L"", 183}, {L"\\A", L"", L"\\S", 183},
        {L"\\b", L"", L"", 0},         {L"\\a", L"", L"", 183},
    };
    auto record = Named<ZopFileRuleRecord>(L"");
    for (const auto& [path, filter, scope, error] : cases) {
        SetField(record.path, path);
        SetField(record.filter, filter);
        SetField(record.scopePath, scope);
        EXPECT_EQ(Give(ZOP_IOCTL_ADD_FILE_RULE, record), error);
        ++record.exclusive;  // does not count
    }
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_FILE_RULE, Named<ZopPathRecord>(L"\\A")), 0u);
    const auto left = Simulator().Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
    ASSERT_EQ(left.size(), 1u) << "removal takes every rule of the path";
    EXPECT_EQ(FieldText(left[0].path), L"\\b");
    memset(record.filter, 1, sizeof(record.filter));
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_FILE_RULE, record), 87u) << "a text that does not end";
}

// The hash chains must survive growth and removal in any order.
TEST_F(SimulatorRules, LargeTablesStayConsistent) {
    const auto name = [](int i) { return L"\\Device\\Many\\" + std::to_wstring(i * 7919 % 601); };
    std::set<std::wstring> kept, held;
    for (int i = 0; i < 600; ++i) {
        ASSERT_EQ(Add(kFamilies[0], name(i)), 0u);
        if (i % 3 != 0) kept.insert(name(i));
    }
    for (int i = 0; i < 600; i += 3)
        ASSERT_EQ(Remove(kFamilies[0], name(i)), 0u);
    for (const ZopRuleRecord& record : Simulator().Table<ZopRuleRecord>(ZOSIM_TABLE_PROCESS))
        held.insert(FieldText(record.path));
    EXPECT_EQ(held, kept);
    for (const std::wstring& known : kept)
        ASSERT_EQ(Add(kFamilies[0], known), 183u);
}

TEST_F(SimulatorCommands, TheStatusShowsSwitchesAsTheirBytesAndTheSizesOfTables) {
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{9}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_FILE_PROTECT, ZopToggleRecord{1}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, ZopToggleRecord{200}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_REGISTRY_RULE, Named<ZopRegistryRuleRecord>(L"\\REGISTRY\\x")), 0u);
    std::uint8_t status[20] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATUS, nullptr, 0, status, 20).returned, 20u);
    const std::uint8_t expected[20] = {9, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 200, 0, 0, 0, 0};
    EXPECT_EQ(memcmp(status, expected, 20), 0);
}

TEST_F(SimulatorCommands, ProcessesAreKnownByTheWholeOfTheirNumber) {
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0x01000000, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 183u);
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 1168u);
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_OVERRIDE], 1u);
}

TEST_F(SimulatorCommands, CountersGoOnFromWhatWasSetInBothLayouts) {
    ASSERT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
    ASSERT_EQ(Give(ZOP_IOCTL_REMOVE_PROCESS_RULE, Named<ZopPathRecord>(L"\\a")), 1168u);
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    std::uint32_t block[19] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).returned, 76u);
    const std::uint32_t expected[] = {3, 3, 1, 1, 0, 3, 0, 0, 0};
    EXPECT_EQ(memcmp(block, expected, sizeof(expected)), 0);

    Simulator().SetCounters({{100, 200, 300, 400, 500, 600, 700}});
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 4);
    Simulator().SetStatsVersion(2);
    block[14] = 0xEEEEEEEE;
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 55).error, 122u);
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).returned, 56u);
    const std::uint32_t more[] = {2, 102, 201, 300, 400, 500, 600, 704, 0, 0, 0, 0, 0, 0, 0xEEEEEEEE};
    EXPECT_EQ(memcmp(block, more, sizeof(more)), 0);
}

// What is drained in order, lost and told at every load is seen in the library's tests.
TEST_F(SimulatorCommands, ADrainGoesByThePositionAndTheSmallerOfRequestAndBuffer) {
    const struct {
        std::uint32_t produce, lastRead, capacity, room, count, dropped, position;
    } steps[] = {
        {0, 0, 8, 8, 0, 0, 0},
        {100, 0, 50, 10, 10, 0, 10},
        {0, 0, 10, 50, 10, 0, 10},  // reading again is allowed
        {0, 90, 0xFFFFFFFF, 0, 0, 0, 90},
        {924, 0, 1024, 1024, 1024, 0, 1024},  // full to the last slot
        {1, 0, 1024, 1024, 1024, 1, 1025},    // one too many
        {0, 0xFFFFFF00, 1, 1, 1, 1, 2},       // a position of an earlier life
    };
    for (const auto& step : steps) {
        Simulator().InjectEvents(ZOSIM_RING_EVENTS, step.produce);
        std::vector<std::uint8_t> reply(16 + std::size_t{step.room} * 562);
        const ZopDrainRequest request{step.lastRead, step.capacity};
        const IoResult result = Send(ZOP_IOCTL_DRAIN_EVENTS, &request, sizeof(request), reply.data(), reply.size());
        EXPECT_EQ(result.returned, 16 + step.count * 562);
        const std::uint32_t expected[] = {step.count, step.dropped, step.position};
        EXPECT_EQ(memcmp(reply.data(), expected, sizeof(expected)), 0) << "step " << (&step - steps);
    }
}

TEST_F(SimulatorCommands, EventsHaveTheDocumentedLayout) {
    Simulator().SetSequence(ZOSIM_RING_REGISTRY, 0xABCD);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 1);
    std::uint8_t reply[16 + 1076];
    EXPECT_EQ(Send(ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, "\xCD\xAB\0\0\1\0\0\0", 8, reply, sizeof(reply)).error, 0u);
    ZoSimRegistryEvent event;
    memcpy(&event, reply + 16, sizeof(event));
    ZoSimRegistryEvent expected{0xABCD, 3, event.time, 1981, 1982, 0, 1, 51, {}, {}};
    SetField(expected.key, L"\\REGISTRY\\MACHINE\\SOFTWARE\\Simulated\\event_0000ABCD");
    EXPECT_EQ(memcmp(&event, &expected, sizeof(event)), 0);
}

TEST_F(SimulatorCommands, AProducerFillsTheRingAsTimePasses) {
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 0, 1000);
    const auto produced = [this] { return Simulator().State().rings[ZOSIM_RING_EVENTS].produced; };
    for (int wait = 0; wait < 1000 && produced() == 0; ++wait)
        Sleep(10);
    EXPECT_GT(produced(), 0u);
}

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

    for (std::uint32_t i = 0; i < ZOSIM_REQUESTS_KEPT + 10; ++i) {
        EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{i, 0}), 0u);
    }
    const std::vector<ZoSimRequest> all = Simulator().Requests();
    ASSERT_EQ(all.size(), ZOSIM_REQUESTS_KEPT);
    EXPECT_EQ(all.front().sequence, 12u);
    EXPECT_EQ(RecordOf<ZopPidRecord>(all.front()).pid, 10u);
    EXPECT_EQ(RecordOf<ZopPidRecord>(all.back()).pid, ZOSIM_REQUESTS_KEPT + 9);
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
