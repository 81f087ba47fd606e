#include <algorithm>

#include "driver_channel.h"

namespace zotest {
namespace {

// What each command takes and gives at least, written down here a second time on purpose.
struct CommandShape {
    const char* name;
    std::uint32_t code;
    std::uint32_t in;
    std::uint32_t out;
};
constexpr CommandShape kShapes[] = {
    {"ADD_PROCESS_RULE", 0x8000C004, 1042, 0},
    {"REMOVE_PROCESS_RULE", 0x8000C008, 1040, 0},
    {"CLEAR_PROCESS_RULES", 0x8000C00C, 0, 0},
    {"LIST_PROCESS_RULES", 0x8000C010, 0, 16},
    {"ADD_FILE_RULE", 0x8000C044, 2341, 0},
    {"REMOVE_FILE_RULE", 0x8000C048, 1040, 0},
    {"CLEAR_FILE_RULES", 0x8000C04C, 0, 0},
    {"ENABLE_FILE_PROTECT", 0x8000C050, 1, 0},
    {"ADD_FILE_IGNORE_PROCESS", 0x8000C054, 1042, 0},
    {"REMOVE_FILE_IGNORE_PROCESS", 0x8000C058, 1040, 0},
    {"CLEAR_FILE_IGNORE_PROCESSES", 0x8000C05C, 0, 0},
    {"LIST_FILE_RULES", 0x8000C060, 0, 16},
    {"ADD_REGISTRY_RULE", 0x8000C084, 1025, 0},
    {"REMOVE_REGISTRY_RULE", 0x8000C088, 1024, 0},
    {"CLEAR_REGISTRY_RULES", 0x8000C08C, 0, 0},
    {"ADD_REGISTRY_IGNORE_PROCESS", 0x8000C090, 1042, 0},
    {"REMOVE_REGISTRY_IGNORE_PROCESS", 0x8000C094, 1040, 0},
    {"CLEAR_REGISTRY_IGNORE_PROCESSES", 0x8000C098, 0, 0},
    {"DRAIN_REGISTRY_EVENTS", 0x8000C09C, 8, 16},
    {"LIST_REGISTRY_RULES", 0x8000C0A0, 0, 16},
    {"ENABLE_DLL_LOAD_FILTER", 0x8000C0C4, 1, 0},
    {"ADD_DLL_WHITELIST_FOLDER", 0x8000C0C8, 1041, 0},
    {"REMOVE_DLL_WHITELIST_FOLDER", 0x8000C0CC, 1040, 0},
    {"CLEAR_DLL_WHITELIST", 0x8000C0D0, 0, 0},
    {"LIST_DLL_WHITELIST", 0x8000C0D4, 0, 16},
    {"COPY_DIRECTORY", 0x8000C100, 2084, 16},
    {"REPLACE_FILE", 0x8000C104, 3120, 0},
    {"GET_STATUS", 0x8000C3C0, 0, 20},
    {"GET_VERSION", 0x8000C3C4, 0, 12},
    {"GET_STATS", 0x8000C3C8, 0, 76},
    {"DRAIN_EVENTS", 0x8000C3CC, 8, 16},
    {"QUERY_PID_SIGNATURE", 0x8000C3D0, 8, 8},
    {"GET_SIGNATURE_POLICY", 0x8000C3D4, 0, 8},
    {"SET_SIGNATURE_POLICY", 0x8000C3D8, 8, 0},
    {"REFRESH_PID_SIGNATURE", 0x8000C3DC, 8, 8},
    {"ADD_SIGNATURE_OVERRIDE", 0x8000C3E0, 8, 0},
    {"REMOVE_SIGNATURE_OVERRIDE", 0x8000C3E4, 8, 0},
    {"CLEAR_SIGNATURE_OVERRIDES", 0x8000C3E8, 0, 0},
    {"SET_MASTER_ENABLED", 0x8000C3EC, 1, 0},
    {"GET_MASTER_ENABLED", 0x8000C3F0, 0, 1},
    {"FORCE_CRASH", 0x8000C3F4, 0, 0},
};

class SimulatorCommands : public ChannelTest {};

TEST_F(SimulatorCommands, RefuseEveryWrongLength) {
    std::vector<std::uint8_t> in(4096), out(4096);
    for (const CommandShape& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        for (const std::uint32_t wrong : {0u, shape.in - 1, shape.in + 1, 4000u}) {
            if (wrong == shape.in || wrong > in.size()) continue;
            const IoResult result = Send(shape.code, in.data(), wrong, out.data(), 4096);
            EXPECT_EQ(result.error, 87u) << "input of " << wrong;
            EXPECT_EQ(result.returned, 0u);
        }
        if (shape.out != 0) {
            EXPECT_EQ(Send(shape.code, in.data(), shape.in, out.data(), shape.out - 1).error, 122u);
            EXPECT_EQ(Send(shape.code, in.data(), shape.in, nullptr, 0).error, 122u);
        }
    }
    EXPECT_EQ(Give(0x8000C400), 1u) << "a code that is no command";
    const ZoSimState state = Simulator().State();
    for (const std::uint32_t count : state.tableCount)
        EXPECT_EQ(count, 0u);
    EXPECT_EQ(state.forceCrashes, 0u);
}

// The rule families differ in their codes and record types alone.
struct Family {
    const char* name;
    std::uint32_t table, add, remove, clear, list;
    std::uint32_t record, key, entry;
};
constexpr Family kFamilies[] = {
    {"process", ZOSIM_TABLE_PROCESS, ZOP_IOCTL_ADD_PROCESS_RULE, ZOP_IOCTL_REMOVE_PROCESS_RULE,
     ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_LIST_PROCESS_RULES, 1042, 1040, 1044},
    {"file", ZOSIM_TABLE_FILE, ZOP_IOCTL_ADD_FILE_RULE, ZOP_IOCTL_REMOVE_FILE_RULE, ZOP_IOCTL_CLEAR_FILE_RULES,
     ZOP_IOCTL_LIST_FILE_RULES, 2341, 1040, 2344},
    {"registry", ZOSIM_TABLE_REGISTRY, ZOP_IOCTL_ADD_REGISTRY_RULE, ZOP_IOCTL_REMOVE_REGISTRY_RULE,
     ZOP_IOCTL_CLEAR_REGISTRY_RULES, ZOP_IOCTL_LIST_REGISTRY_RULES, 1025, 1024, 1028},
    {"dll", ZOSIM_TABLE_DLL, ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER,
     ZOP_IOCTL_CLEAR_DLL_WHITELIST, ZOP_IOCTL_LIST_DLL_WHITELIST, 1041, 1040, 1044},
    {"file ignore", ZOSIM_TABLE_FILE_IGNORE, ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS,
     ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, 0, 1042, 1040, 1044},
    {"registry ignore", ZOSIM_TABLE_REGISTRY_IGNORE, ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS,
     ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS, ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES, 0, 1042, 1040, 1044},
};

class SimulatorRules : public ChannelTest {
  protected:
    // The name as the first text field of a record of the given length, whose last byte is set.
    [[nodiscard]] std::uint32_t Add(const Family& family, const std::wstring& name) const {
        ZoSimRequest record = Named<ZoSimRequest>(L"");
        memcpy(record.in, name.c_str(), 2 * name.size());
        record.in[family.record - 1] = 7;
        return Send(family.add, record.in, family.record).error;
    }
    [[nodiscard]] std::uint32_t Remove(const Family& family, const std::wstring& name) const {
        const auto record = Named<ZoSimRequest>(L"");
        std::vector<std::uint8_t> bytes(record.in, record.in + family.key);
        memcpy(bytes.data(), name.c_str(), 2 * name.size());
        return Send(family.remove, bytes.data(), family.key).error;
    }
    [[nodiscard]] std::uint32_t Count(const Family& family) const {
        return Simulator().State().tableCount[family.table];
    }
};

TEST_F(SimulatorRules, EveryFamilyKeepsKnowsAndForgets) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.name);
        EXPECT_EQ(Add(family, L"\\Device\\A\\One"), 0u);
        EXPECT_EQ(Add(family, L"\\Device\\A\\Two"), 0u);
        EXPECT_EQ(Add(family, L"\\DEVICE\\a\\oNE"), 183u) << "the same but for case";
        EXPECT_EQ(Add(family, L"\\Device\\A\\On"), 0u) << "a beginning is another name";
        EXPECT_EQ(Add(family, L"\\Device\\\u00E4"), 0u);
        EXPECT_EQ(Add(family, L"\\Device\\\u00C4"), 183u) << "case beyond ASCII";
        EXPECT_EQ(Count(family), 4u);
        EXPECT_EQ(Remove(family, L"\\Device\\A\\Three"), 1168u);
        EXPECT_EQ(Remove(family, L"\\device\\a\\two"), 0u);
        EXPECT_EQ(Remove(family, L"\\device\\a\\two"), 1168u);
        EXPECT_EQ(Count(family), 3u);

        Simulator().SetCapacity(family.table, 3);
        EXPECT_EQ(Add(family, L"\\Device\\Full"), 1816u);
        EXPECT_EQ(Add(family, L"\\Device\\A\\One"), 183u) << "a duplicate in a full table is a duplicate";
        EXPECT_EQ(Give(family.clear), 0u);
        EXPECT_EQ(Count(family), 0u);
        EXPECT_EQ(Add(family, L"\\Device\\Full"), 0u);

        EXPECT_EQ(Add(family, L""), 87u);
        EXPECT_EQ(Remove(family, L""), 87u);
        EXPECT_EQ(Add(family, std::wstring(family.key / 2, L'x')), 87u) << "no terminator";
        EXPECT_EQ(Remove(family, std::wstring(family.key / 2, L'x')), 87u);
        EXPECT_EQ(Add(family, std::wstring(family.key / 2 - 1, L'x')), 0u);
        EXPECT_EQ(Count(family), 2u);
    }
}

TEST_F(SimulatorRules, ListsAreAddRecordsPaddedWithZerosAndTellWhatDidNotFit) {
    for (const Family& family : kFamilies) {
        if (family.list == 0) continue;
        SCOPED_TRACE(family.name);
        for (int i = 0; i < 25; ++i)
            ASSERT_EQ(Add(family, L"\\Rule" + std::to_wstring(i)), 0u);
        struct {
            std::uint32_t capacity, slack, returned;
        } const cases[] = {{0, 0, 0}, {0, 5, 0}, {10, 0, 10}, {10, 1000, 10}, {25, 0, 25}, {40, 0, 25}};
        for (const auto& [capacity, slack, returned] : cases) {
            std::vector<std::uint8_t> reply(16 + capacity * family.entry + slack, 0xEE);
            const IoResult result =
                Send(family.list, nullptr, 0, reply.data(), static_cast<std::uint32_t>(reply.size()));
            ASSERT_EQ(result.error, 0u);
            EXPECT_EQ(result.returned, 16 + returned * family.entry);
            ZopListReplyHeader header;
            memcpy(&header, reply.data(), sizeof(header));
            EXPECT_EQ(header.total, 25u);
            EXPECT_EQ(header.returned, returned);
            EXPECT_EQ(header.truncated, 25 - returned);
            for (std::uint32_t i = 0; i < returned; ++i) {
                std::vector<std::uint8_t> expected(family.entry);
                const std::wstring name = L"\\Rule" + std::to_wstring(i);
                memcpy(expected.data(), name.c_str(), 2 * name.size());
                expected[family.record - 1] = 7;
                EXPECT_EQ(memcmp(reply.data() + 16 + i * family.entry, expected.data(), family.entry), 0) << i;
            }
        }
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

TEST_F(SimulatorCommands, SwitchesPolicyAndCrashAreKept) {
    std::uint8_t byte = 9;
    EXPECT_EQ(Send(ZOP_IOCTL_GET_MASTER_ENABLED, nullptr, 0, &byte, 1).returned, 1u);
    EXPECT_EQ(byte, 1u);
    EXPECT_EQ(Give(ZOP_IOCTL_SET_MASTER_ENABLED, ZopToggleRecord{0}), 0u);
    EXPECT_EQ(Send(ZOP_IOCTL_GET_MASTER_ENABLED, nullptr, 0, &byte, 1).error, 0u);
    EXPECT_EQ(byte, 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_FILE_PROTECT, ZopToggleRecord{1}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, ZopToggleRecord{200}), 0u);
    const std::uint8_t policy[8] = {2, 3, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Send(ZOP_IOCTL_SET_SIGNATURE_POLICY, policy, 8).error, 0u);
    std::uint8_t got[8] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_SIGNATURE_POLICY, nullptr, 0, got, 8).returned, 8u);
    EXPECT_EQ(memcmp(got, policy, 8), 0);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_FORCE_CRASH), 0u);

    const ZoSimState state = Simulator().State();
    EXPECT_EQ(state.masterEnabled, 0u);
    EXPECT_EQ(state.fileProtectEnabled, 1u);
    EXPECT_EQ(state.dllFilterEnabled, 200u);
    EXPECT_EQ(state.signatureMode, 2u);
    EXPECT_EQ(state.signatureMinLevel, 3u);
    EXPECT_EQ(state.forceCrashes, 2u);

    ASSERT_EQ(Give(ZOP_IOCTL_ADD_REGISTRY_RULE, Named<ZopRegistryRuleRecord>(L"\\REGISTRY\\x")), 0u);
    std::uint8_t status[20] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATUS, nullptr, 0, status, 20).returned, 20u);
    const std::uint8_t own[20] = {0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 200, 0, 0, 0, 0};
    EXPECT_EQ(memcmp(status, own, 20), 0);
    Simulator().SetStatusReply({1, 0, 255, 3}, {1, 0x01020304, 0, 7});
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATUS, nullptr, 0, status, 20).error, 0u);
    const std::uint8_t given[20] = {1, 1, 0, 0, 0, 0, 4, 3, 2, 1, 255, 0, 0, 0, 0, 3, 7, 0, 0, 0};
    EXPECT_EQ(memcmp(status, given, 20), 0);
}

TEST_F(SimulatorCommands, SignaturesAreKnownOnlyWhereTheyWereMadeKnown) {
    const ZopPidRecord pid{4711, 0};
    std::uint8_t reply[8];
    const auto ask = [&](std::uint32_t code) { return Send(code, &pid, 8, reply, 8); };
    EXPECT_EQ(ask(ZOP_IOCTL_QUERY_PID_SIGNATURE).error, 1168u);
    EXPECT_EQ(ask(ZOP_IOCTL_REFRESH_PID_SIGNATURE).error, 1168u);
    Simulator().SetPidSignature({4711, 1, 0, 0, 5, 0});
    struct {
        std::uint32_t code;
        std::uint8_t first, second;
    } const steps[] = {{ZOP_IOCTL_QUERY_PID_SIGNATURE, 1, 0},
                       {ZOP_IOCTL_REFRESH_PID_SIGNATURE, 0, 5},
                       {ZOP_IOCTL_QUERY_PID_SIGNATURE, 0, 5}};
    for (const auto& [code, first, second] : steps) {
        const IoResult result = ask(code);
        EXPECT_EQ(result.error, 0u);
        EXPECT_EQ(result.returned, 8u);
        EXPECT_EQ(reply[0], first);
        EXPECT_EQ(reply[1], second);
    }
    Simulator().SetPidSignature({4711, 0, 0, 0, 0, 1});
    EXPECT_EQ(ask(ZOP_IOCTL_QUERY_PID_SIGNATURE).error, 1168u);

    Simulator().SetCapacity(ZOSIM_TABLE_OVERRIDE, 2);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 183u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{0x01000000, 0}), 0u);
    EXPECT_EQ(Give(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, ZopPidRecord{8, 0}), 1816u);
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, ZopPidRecord{8, 0}), 1168u);
    EXPECT_EQ(Give(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, ZopPidRecord{0, 0}), 0u);
    const auto left = Simulator().Table<ZopPidRecord>(ZOSIM_TABLE_OVERRIDE);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].pid, 0x01000000u);
    EXPECT_EQ(Give(ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES), 0u);
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_OVERRIDE], 0u);
}

TEST_F(SimulatorCommands, CountersComeInBothLayouts) {
    ASSERT_EQ(Give(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, Named<ZopDllFolderRecord>(L"\\a")), 0u);
    ASSERT_EQ(Give(ZOP_IOCTL_REMOVE_PROCESS_RULE, Named<ZopPathRecord>(L"\\a")), 1168u);
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 3);
    std::uint32_t block[19] = {};
    IoResult result = Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76);
    EXPECT_EQ(result.returned, 76u);
    const std::uint32_t expected[] = {3, 3, 1, 1, 0, 3, 0, 0, 0};
    EXPECT_EQ(memcmp(block, expected, sizeof(expected)), 0);

    ZoSimCounters counters{};
    for (std::uint32_t i = 0; i < ZOSIM_COUNTERS; ++i)
        counters.values[i] = 100 * (i + 1);
    Simulator().SetCounters(counters);
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 4);
    result = Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76);
    counters.values[ZOSIM_COUNTER_REQUESTS] += 1;
    counters.values[ZOSIM_COUNTER_REGISTRY_EVENTS] += 4;
    EXPECT_EQ(memcmp(block + 1, counters.values, sizeof(counters)), 0);
    EXPECT_EQ(block[13], 1300u) << "unsigned bypass attempts lie at offset 52";

    Simulator().SetStatsVersion(2);
    memset(block, 0xEE, sizeof(block));
    result = Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76);
    EXPECT_EQ(result.returned, 56u);
    EXPECT_EQ(block[0], 2u);
    EXPECT_EQ(block[14], 0xEEEEEEEEu);
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 55).error, 122u);
}

}  // namespace
}  // namespace zotest
