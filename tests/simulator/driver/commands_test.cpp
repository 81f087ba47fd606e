#include <array>
#include <set>

#include "driver_channel.h"
#include "temp_folder.h"

namespace zotest {
namespace {

// What the library's own tests cannot show, which are all made against the simulator.
using SimulatorControl = ChannelTest;

class SimulatorRules : public ChannelTest {
  protected:
    [[nodiscard]] std::uint32_t Add(const std::wstring& path) const {
        return Give(ZOP_IOCTL_ADD_PROCESS_RULE, Named<ZopRuleRecord>(path));
    }
    [[nodiscard]] std::uint32_t Remove(const std::wstring& path) const {
        return Give(ZOP_IOCTL_REMOVE_PROCESS_RULE, Named<ZopPathRecord>(path));
    }
};

TEST_F(SimulatorRules, ATableKeepsKnowsAndForgets) {
    const std::wstring tooLong(ZOP_PATH_UNITS, L'x');  // without a terminator
    EXPECT_EQ(Add(L"\\Device\\\u00E4"), 0u);
    EXPECT_EQ(Add(L"\\DEVICE\\\u00C4"), 183u) << "the same but for case, also beyond ASCII";
    EXPECT_EQ(Add(L"\\Device\\"), 0u) << "a beginning is another name";
    EXPECT_EQ(Add(tooLong.substr(1)), 0u);
    for (const std::wstring& unsound : {std::wstring(), tooLong}) {
        EXPECT_EQ(Add(unsound), 87u);
        EXPECT_EQ(Remove(unsound), 87u);
    }
    EXPECT_EQ(Remove(L"\\device\\\u00E4"), 0u);
    EXPECT_EQ(Remove(L"\\device\\\u00E4"), 1168u);
    Simulator().SetCapacity(ZOSIM_TABLE_PROCESS, 2);
    EXPECT_EQ(Add(L"\\Device\\Full"), 1816u);
    EXPECT_EQ(Add(L"\\Device\\"), 183u) << "a duplicate in a full table is a duplicate";
    EXPECT_EQ(Give(ZOP_IOCTL_CLEAR_PROCESS_RULES), 0u);
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_PROCESS], 0u);
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
        ASSERT_EQ(Add(name(i)), 0u);
        if (i % 3 != 0) kept.insert(name(i));
    }
    for (int i = 0; i < 600; i += 3)
        ASSERT_EQ(Remove(name(i)), 0u);
    for (const ZopRuleRecord& record : Simulator().Table<ZopRuleRecord>(ZOSIM_TABLE_PROCESS))
        held.insert(FieldText(record.path));
    EXPECT_EQ(held, kept);
    for (const std::wstring& known : kept)
        ASSERT_EQ(Add(known), 183u);
}

TEST_F(SimulatorControl, StatusShowsSwitchesAndCounts) {
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{9}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_FILE_PROTECT, ZopToggleRecord{1}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, ZopToggleRecord{200}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_REGISTRY_RULE, Named<ZopRegistryRuleRecord>(L"\\REGISTRY\\x")), 0u);
    std::array<std::uint8_t, 20> reply{};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATUS, nullptr, 0, reply.data(), 20).returned, 20u);
    EXPECT_EQ(reply, (std::array<std::uint8_t, 20>{9, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 200}));
}

TEST_F(SimulatorControl, ADrainGivesAsManyDocumentedRecordsAsItIsAskedFor) {
    Simulator().SetSequence(ZOSIM_RING_REGISTRY, 0xABCD);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 2);
    std::uint8_t reply[16 + 2 * 1076];
    const ZopDrainRequest request{0xABCD, 1};
    EXPECT_EQ(Send(ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, &request, 8, reply, sizeof(reply)).returned, 16u + 1076);
    ZoSimRegistryEvent event;
    memcpy(&event, reply + 16, sizeof(event));
    ZoSimRegistryEvent expected{0xABCD, 3, event.time, 1981, 1982, 0, 1, 51, {}, {}};
    SetField(expected.key, L"\\REGISTRY\\MACHINE\\SOFTWARE\\Simulated\\event_0000ABCD");
    EXPECT_EQ(memcmp(&event, &expected, sizeof(event)), 0);
}

TEST_F(SimulatorControl, RefusesWhatIsUnsound) {
    std::vector<std::uint8_t> record(2342);
    record[0] = 'x';
    for (const std::size_t wrong : {0u, 2340u, 2342u})
        EXPECT_EQ(Send(ZOP_IOCTL_ADD_FILE_RULE, record.data(), wrong).error, 87u) << wrong;
    ASSERT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
    void (*const damages[])(ZoSimSettings&) = {
        [](ZoSimSettings& settings) { settings.statsVersion = 4; },
        [](ZoSimSettings& settings) { settings.tableCapacity[1] = ZOSIM_MAX_CAPACITY + 1; },
        [](ZoSimSettings& settings) { settings.tableCapacity[ZOSIM_TABLE_DLL] = 0; },
        [](ZoSimSettings& settings) { settings.ringSlots[0] = 0; },
    };
    for (const auto damage : damages) {
        ZoSimSettings settings = Simulator().Settings();
        damage(settings);
        EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_SET_SETTINGS, &settings, sizeof(settings)).error, 87u);
    }
    const ZoSimFault never{0, 0, 0, ZOSIM_FAULT_STATUS, 0xC0000001, 0, 0, 0, {}};
    EXPECT_EQ(Simulator().Send(ZOSIM_IOCTL_ADD_FAULT, &never, sizeof(never)).error, 87u);
}

TEST_F(SimulatorControl, RemembersTheLastRequestsAndTheirSender) {
    for (std::uint32_t i = 1; i <= ZOSIM_REQUESTS_KEPT + 10; ++i)
        EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{i, 0}), 0u);
    const std::vector<ZoSimRequest> all = Simulator().Requests();
    ASSERT_EQ(all.size(), ZOSIM_REQUESTS_KEPT);
    EXPECT_EQ(all.front().sequence, 11u);
    EXPECT_EQ(RecordOf<ZopPidRecord>(all.front()).pid, 11u);
    EXPECT_EQ(all.back().pid, GetCurrentProcessId());
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

TEST_F(SimulatorControl, ACopyIsOfWhatTheOptionsSayWithTimes) {
    const TempFolder folder;
    const auto from = folder / "from", to = folder / "to";
    const std::string big(200'000, '\xA5');  // more than one block
    WriteFileBytes(from / L"gr\u00FC\u00DFe", big);
    WriteFileBytes(from / "b", "new");
    WriteFileBytes(from / "sub" / "deep" / "c", "");
    const auto old = last_write_time(from / "b") - std::chrono::hours(1000);
    last_write_time(from / "b", old);
    const struct {
        std::uint8_t subfolders, overwrite;
        ZoProtectorCopyDirectoryResult result;
    } cases[] = {{0, 0, {1, 0, 2, 0}}, {0, 1, {2, 0, 1, 0}}, {1, 0, {2, 2, 1, 0}}, {1, 1, {3, 2, 0, 0}}};
    for (const auto& c : cases) {
        RemoveTree(to.wstring());
        WriteFileBytes(to / "b", "old");
        ZoProtectorCopyDirectoryRequest request{};
        SetField(request.sourceDir, NtPath(from.wstring()));
        SetField(request.destinationDir, NtPath(to.wstring()));
        request.option1 = c.subfolders;
        request.option2 = c.overwrite;
        ZoProtectorCopyDirectoryResult result{};
        EXPECT_EQ(Send(ZOP_IOCTL_COPY_DIRECTORY, &request, sizeof(request), &result, sizeof(result)).error, 0u);
        EXPECT_EQ(memcmp(&result, &c.result, sizeof(result)), 0);
        EXPECT_EQ(ReadFileBytes(to / L"gr\u00FC\u00DFe"), big);
        EXPECT_EQ(ReadFileBytes(to / "b"), c.overwrite ? "new" : "old");
        EXPECT_EQ(last_write_time(to / "b") == old, c.overwrite != 0);
        EXPECT_EQ(exists(to / "sub" / "deep" / "c"), c.subfolders != 0);
    }
}

}  // namespace
}  // namespace zotest
