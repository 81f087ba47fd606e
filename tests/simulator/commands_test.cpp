#include <algorithm>

#include "driver_channel.h"

namespace zotest {
namespace {

class SimulatorCommands : public ChannelTest {};

// One check serves all commands; which lengths are right is seen where the library's requests are accepted.
TEST_F(SimulatorCommands, RefuseEveryWrongLength) {
    const struct {
        std::uint32_t code, in, out;
    } shapes[] = {
        {ZOP_IOCTL_ADD_FILE_RULE, 2341, 0},   {ZOP_IOCTL_REMOVE_REGISTRY_RULE, 1024, 0},
        {ZOP_IOCTL_CLEAR_FILE_RULES, 0, 0},   {ZOP_IOCTL_LIST_FILE_RULES, 0, 16},
        {ZOP_IOCTL_DRAIN_EVENTS, 8, 16},      {ZOP_IOCTL_COPY_DIRECTORY, 2084, 16},
        {ZOP_IOCTL_GET_STATUS, 0, 20},        {ZOP_IOCTL_QUERY_PID_SIGNATURE, 8, 8},
        {ZOP_IOCTL_GET_MASTER_ENABLED, 0, 1}, {ZOP_IOCTL_FORCE_CRASH, 0, 0},
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
        EXPECT_EQ(Send(shape.code, in.data(), shape.in, nullptr, 0).error, 122u);
    }
    EXPECT_EQ(Give(0x8000C400), 1u) << "a code that is no command";
    EXPECT_EQ(Simulator().State().forceCrashes, 0u);
}

// The rule families differ in their codes and record types alone.
struct Family {
    std::uint32_t table, add, remove, clear, record, key;
};
constexpr Family kFamilies[] = {
    {ZOSIM_TABLE_PROCESS, ZOP_IOCTL_ADD_PROCESS_RULE, ZOP_IOCTL_REMOVE_PROCESS_RULE, ZOP_IOCTL_CLEAR_PROCESS_RULES,
     1042, 1040},
    {ZOSIM_TABLE_FILE, ZOP_IOCTL_ADD_FILE_RULE, ZOP_IOCTL_REMOVE_FILE_RULE, ZOP_IOCTL_CLEAR_FILE_RULES, 2341, 1040},
    {ZOSIM_TABLE_REGISTRY, ZOP_IOCTL_ADD_REGISTRY_RULE, ZOP_IOCTL_REMOVE_REGISTRY_RULE, ZOP_IOCTL_CLEAR_REGISTRY_RULES,
     1025, 1024},
    {ZOSIM_TABLE_DLL, ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER,
     ZOP_IOCTL_CLEAR_DLL_WHITELIST, 1041, 1040},
    {ZOSIM_TABLE_FILE_IGNORE, ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS,
     ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, 1042, 1040},
    {ZOSIM_TABLE_REGISTRY_IGNORE, ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS,
     ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES, 1042, 1040},
};

class SimulatorRules : public ChannelTest {
  protected:
    // The name as the first text field of a record of the given length.
    [[nodiscard]] std::uint32_t Name(std::uint32_t code, std::uint32_t length, const std::wstring& name) const {
        std::vector<std::uint8_t> record(length);
        memcpy(record.data(), name.data(), 2 * name.size());
        return Send(code, record.data(), length).error;
    }
    [[nodiscard]] std::uint32_t Add(const Family& family, const std::wstring& name) const {
        return Name(family.add, family.record, name);
    }
    [[nodiscard]] std::uint32_t Remove(const Family& family, const std::wstring& name) const {
        return Name(family.remove, family.key, name);
    }
    [[nodiscard]] std::uint32_t Count(const Family& family) const {
        return Simulator().State().tableCount[family.table];
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
        EXPECT_EQ(Count(family), 2u);

        Simulator().SetCapacity(family.table, 2);
        EXPECT_EQ(Add(family, L"\\Device\\Full"), 1816u);
        EXPECT_EQ(Add(family, L"\\Device\\"), 183u) << "a duplicate in a full table is a duplicate";
        EXPECT_EQ(Give(family.clear), 0u);
        EXPECT_EQ(Count(family), 0u);
    }
}

TEST_F(SimulatorRules, AFileRuleIsTheSameWhenPathFilterAndScopeAre) {
    const auto rule = [](const wchar_t* path, const wchar_t* filter, const wchar_t* scope, std::uint8_t exclusive) {
        ZopFileRuleRecord record{};
        SetField(record.path, path);
        SetField(record.filter, filter);
        SetField(record.scopePath, scope);
        record.exclusive = exclusive;
        return record;
    };
    struct {
        const wchar_t *path, *filter, *scope;
        std::uint32_t error;
    } const cases[] = {
        {L"\\a", L"", L"", 0},         {L"\\a", L"*.exe", L"", 0},   {L"\\a", L"", L"\\s", 0},
        {L"\\a", L"*.exe", L"\\s", 0}, {L"\\a", L"*.EXE", L"", 183}, {L"\\A", L"", L"\\S", 183},
        {L"\\b", L"", L"", 0},         {L"\\a", L"", L"", 183},
    };
    std::uint8_t exclusive = 0;  // does not count
    for (const auto& [path, filter, scope, error] : cases) {
        EXPECT_EQ(Give(ZOP_IOCTL_ADD_FILE_RULE, rule(path, filter, scope, exclusive++)), error);
    }
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_FILE_RULE, Named<ZopPathRecord>(L"\\A")), 0u);
    const auto left = Simulator().Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
    ASSERT_EQ(left.size(), 1u) << "removal takes every rule of the path";
    EXPECT_EQ(FieldText(left[0].path), L"\\b");
    ZopFileRuleRecord unterminated = rule(L"\\c", L"", L"", 0);
    memset(unterminated.filter, 1, sizeof(unterminated.filter));
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_FILE_RULE, unterminated), 87u);
}

// Against a plain list of names as the model: the hash chains must survive growth and removal in any order.
TEST_F(SimulatorRules, LargeTablesStayConsistent) {
    const Family& family = kFamilies[0];
    std::vector<std::wstring> names;
    for (int i = 0; i < 600; ++i) {
        names.push_back(L"\\Device\\Many\\" + std::to_wstring(i * 7919 % 601));
        ASSERT_EQ(Add(family, names.back()), 0u);
    }
    for (std::size_t i = 0; i < names.size(); i += 3)
        ASSERT_EQ(Remove(family, names[i]), 0u);
    for (std::size_t i = names.size(); i-- > 0;) {
        if (i % 3 == 0) names.erase(names.begin() + static_cast<std::ptrdiff_t>(i));
    }
    for (std::size_t i = 0; i < names.size(); i += 50)
        EXPECT_EQ(Add(family, names[i]), 183u);
    std::vector<std::wstring> held;
    for (const ZopRuleRecord& record : Simulator().Table<ZopRuleRecord>(family.table)) {
        held.push_back(FieldText(record.path));
    }
    std::sort(names.begin(), names.end());
    std::sort(held.begin(), held.end());
    EXPECT_EQ(held, names);
}

TEST_F(SimulatorCommands, SwitchesAreKeptAsTheirBytesAndShownInTheStatus) {
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{9}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_FILE_PROTECT, ZopToggleRecord{1}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, ZopToggleRecord{200}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_SIGNATURE_POLICY, ZopPidRecord{0x0302, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);
    const ZoSimState state = Simulator().State();
    const std::uint32_t kept[] = {state.masterEnabled, state.fileProtectEnabled, state.dllFilterEnabled,
                                  state.signatureMode, state.signatureMinLevel,  state.forceCrashes};
    const std::uint32_t expected[] = {9, 1, 200, 2, 3, 1};
    EXPECT_EQ(memcmp(kept, expected, sizeof(kept)), 0);

    ASSERT_EQ(Give(ZOP_IOCTL_ADD_REGISTRY_RULE, Named<ZopRegistryRuleRecord>(L"\\REGISTRY\\x")), 0u);
    std::uint8_t status[20] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATUS, nullptr, 0, status, 20).returned, 20u);
    const std::uint8_t own[20] = {9, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 200, 0, 0, 0, 0};
    EXPECT_EQ(memcmp(status, own, 20), 0);
}

TEST_F(SimulatorCommands, SignaturesAreKnownOnlyWhereTheyWereMadeKnown) {
    const struct {
        std::uint32_t code, error;
        std::uint8_t first, second;
    } steps[] = {{ZOP_IOCTL_REFRESH_PID_SIGNATURE, 1168, 9, 9},
                 {ZOP_IOCTL_QUERY_PID_SIGNATURE, 0, 1, 0},
                 {ZOP_IOCTL_REFRESH_PID_SIGNATURE, 0, 0, 5},
                 {ZOP_IOCTL_QUERY_PID_SIGNATURE, 0, 0, 5},
                 {ZOP_IOCTL_QUERY_PID_SIGNATURE, 1168, 9, 9}};
    for (const auto& step : steps) {
        const auto index = &step - steps;
        if (index == 1) Simulator().SetPidSignature({4711, 1, 0, 0, 5, 0});
        if (index == 4) Simulator().SetPidSignature({4711, 0, 0, 0, 0, 1});
        const ZopPidRecord pid{4711, 0};
        std::uint8_t reply[8] = {9, 9};
        EXPECT_EQ(Send(step.code, &pid, 8, reply, 8).error, step.error) << index;
        EXPECT_EQ(reply[0], step.first) << index;
        EXPECT_EQ(reply[1], step.second) << index;
    }
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0x01000000, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 183u);
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 1168u);
    const auto left = Simulator().Table<ZopPidRecord>(ZOSIM_TABLE_OVERRIDE);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].pid, 0x01000000u);
    EXPECT_EQ(Give(ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES), 0u);
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_OVERRIDE], 0u);
}

TEST_F(SimulatorCommands, CountersGoOnFromWhatWasSetInBothLayouts) {
    ASSERT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
    ASSERT_EQ(Give(ZOP_IOCTL_REMOVE_PROCESS_RULE, Named<ZopPathRecord>(L"\\a")), 1168u);
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    std::uint32_t block[19] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).returned, 76u);
    const std::uint32_t expected[] = {3, 3, 1, 1, 0, 3, 0, 0, 0};
    EXPECT_EQ(memcmp(block, expected, sizeof(expected)), 0);

    ZoSimCounters counters{};
    for (std::uint32_t i = 0; i < ZOSIM_COUNTERS; ++i)
        counters.values[i] = 100 * (i + 1);
    Simulator().SetCounters(counters);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 4);
    Simulator().SetStatsVersion(2);
    block[14] = 0xEEEEEEEE;
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 55).error, 122u);
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).returned, 56u);
    counters.values[ZOSIM_COUNTER_REQUESTS] += 2;
    counters.values[ZOSIM_COUNTER_REFUSED] += 1;
    counters.values[ZOSIM_COUNTER_REGISTRY_EVENTS] += 4;
    EXPECT_EQ(block[0], 2u);
    EXPECT_EQ(memcmp(block + 1, counters.values, 52), 0);
    EXPECT_EQ(block[14], 0xEEEEEEEEu);
}

}  // namespace
}  // namespace zotest
