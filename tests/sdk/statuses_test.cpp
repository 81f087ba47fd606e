// What every export answers when it is refused: by itself, by the driver, by the platform.

#include <algorithm>
#include <cstring>

#include "sdk_fixture.h"

namespace sdktest {
namespace {

using Statuses = SdkTest;

struct Refusal {
    const char* name;
    std::function<int32_t()> call;
    int32_t status;
};

// Wrong arguments are told before anything else, so these hold with and without a channel.
std::vector<Refusal> BadArguments() {
    static std::uint32_t n[3];
    static std::uint8_t bytes[2344];
    static wchar_t text[65];
    std::vector<Refusal> rows = {
        {"GetVersion major", [] { return ZoProtector_GetVersion(nullptr, n, n); }, ZOP_E_INVALID_ARG},
        {"GetVersion minor", [] { return ZoProtector_GetVersion(n, nullptr, n); }, ZOP_E_INVALID_ARG},
        {"GetVersion patch", [] { return ZoProtector_GetVersion(n, n, nullptr); }, ZOP_E_INVALID_ARG},
        {"GetStatus", [] { return ZoProtector_GetStatus(nullptr); }, ZOP_E_INVALID_ARG},
        {"GetMasterEnabled", [] { return ZoProtector_GetMasterEnabled(nullptr); }, ZOP_E_STANDARD_INVALID_ARG},
        {"SetSignaturePolicy", [] { return ZoProtector_SetSignaturePolicy(nullptr); }, ZOP_E_INVALID_ARG},
        {"GetSignaturePolicy", [] { return ZoProtector_GetSignaturePolicy(nullptr); }, ZOP_E_INVALID_ARG},
        {"Query first", [] { return ZoProtector_QueryPidSignature(4, nullptr, n); }, ZOP_E_INVALID_ARG},
        {"Query second", [] { return ZoProtector_QueryPidSignature(4, n, nullptr); }, ZOP_E_INVALID_ARG},
        {"Refresh first", [] { return ZoProtector_RefreshPidSignature(4, nullptr, n); }, ZOP_E_INVALID_ARG},
        {"Refresh second", [] { return ZoProtector_RefreshPidSignature(4, n, nullptr); }, ZOP_E_INVALID_ARG},
        {"GetStats", [] { return ZoProtector_GetStats(nullptr); }, ZOP_E_INVALID_ARG},
        {"GetUnsignedBypassAttempts", [] { return ZoProtector_GetUnsignedBypassAttempts(nullptr); }, ZOP_E_INVALID_ARG},
        {"GetHardwareId", [] { return ZoProtector_GetHardwareId(nullptr, 65); }, ZOP_E_INVALID_ARG},
        {"GetHardwareId 64", [] { return ZoProtector_GetHardwareId(text, 64); }, ZOP_E_INVALID_ARG},
        {"GetHardwareIdBytes", [] { return ZoProtector_GetHardwareIdBytes(nullptr, 32, n); }, ZOP_E_INVALID_ARG},
        {"GetHardwareIdBytes 31", [] { return ZoProtector_GetHardwareIdBytes(bytes, 31, n); }, ZOP_E_INVALID_ARG},
        {"GetHardwareIdBytes out", [] { return ZoProtector_GetHardwareIdBytes(bytes, 32, nullptr); },
         ZOP_E_INVALID_ARG},
    };
    using Drain = decltype(&ZoProtector_DrainEvents);
    for (const Drain drain : {&ZoProtector_DrainEvents, &ZoProtector_DrainRegistryEvents}) {
        rows.push_back({"drain events", [=] { return drain(0, nullptr, 1, n, n, n); }, ZOP_E_INVALID_ARG});
        rows.push_back({"drain count", [=] { return drain(0, bytes, 1, nullptr, n, n); }, ZOP_E_INVALID_ARG});
        rows.push_back({"drain capacity", [=] { return drain(0, bytes, 0, n, n, n); }, ZOP_E_INVALID_ARG});
    }
    using List = decltype(&ZoProtector_ListFileProtectRules);
    for (const List list : {&ZoProtector_ListProcessProtectRules, &ZoProtector_ListFileProtectRules,
                            &ZoProtector_ListRegistryProtectRules, &ZoProtector_ListDllWhitelistRules}) {
        rows.push_back({"list count", [=] { return list(bytes, 1, nullptr, n); }, ZOP_E_INVALID_ARG});
        rows.push_back({"list entries", [=] { return list(nullptr, 1, n, n); }, ZOP_E_INVALID_ARG});
    }
    for (const wchar_t* name : {static_cast<const wchar_t*>(nullptr), L""}) {
        for (const auto& call : std::vector<std::function<int32_t()>>{
                 [=] { return ZoProtector_AddProcessProtectByPath(name); },
                 [=] { return ZoProtector_AddProcessProtectByFolder(name, 1); },
                 [=] { return ZoProtector_RemoveProcessProtect(name); },
                 [=] { return ZoProtector_AddFileProtectByPath(name); },
                 [=] { return ZoProtector_AddFileProtectByFolder(name, 1, L"*"); },
                 [=] { return ZoProtector_AddFileProtectScoped(name, 0, 0, L"*", L"C:\\s", 0, 0, 0); },
                 [=] { return ZoProtector_AddFileProtectScoped(L"C:\\p", 0, 0, L"*", name, 0, 0, 0); },
                 [=] { return ZoProtector_RemoveFileProtect(name); },
                 [=] { return ZoProtector_AddFileIgnoreProcess(name, 0, 0); },
                 [=] { return ZoProtector_RemoveFileIgnoreProcess(name); },
                 [=] { return ZoProtector_AddRegistryProtectByKey(name, 1); },
                 [=] { return ZoProtector_RemoveRegistryProtect(name); },
                 [=] { return ZoProtector_AddRegistryIgnoreProcess(name, 0, 0); },
                 [=] { return ZoProtector_RemoveRegistryIgnoreProcess(name); },
                 [=] { return ZoProtector_AddDllWhitelistFolder(name, 1); },
                 [=] { return ZoProtector_RemoveDllWhitelistFolder(name); },
             }) {
            rows.push_back({name == nullptr ? "null name" : "empty name", call, ZOP_E_INVALID_ARG});
        }
    }
    return rows;
}

TEST_F(Statuses, BadArgumentsAreRefusedWithAndWithoutAChannelAndNothingIsSent) {
    for (const bool open : {true, false}) {
        if (!open) ZoProtector_Uninitialize();
        static_cast<void>(Log());
        int index = 0;
        const auto requests = RequestsOf([&] {
            for (const Refusal& row : BadArguments()) {
                EXPECT_EQ(row.call(), row.status) << row.name << " " << index << " open " << open;
                ++index;
            }
        });
        EXPECT_TRUE(requests.empty());
        EXPECT_EQ(Log(), Lines());
    }
}

TEST_F(Statuses, EveryCommandNeedsAChannel) {
    ZoProtector_Uninitialize();
    static_cast<void>(Log());
    const auto requests = RequestsOf([&] {
        for (const Request& row : AllRequests()) {
            EXPECT_EQ(row.call(), ZOP_E_NOT_INITIALIZED) << row.code << " " << row.line;
        }
    });
    EXPECT_TRUE(requests.empty());
    EXPECT_EQ(Log(), Lines());
    EXPECT_EQ(ZoProtector_Uninitialize(), ZOP_OK);  // any number of times
}

TEST_F(Statuses, OutputsAreZeroedExactlyWhereTheyAreMeantToBe) {
    constexpr std::uint32_t kOld = 77;
    const auto all = [](const void* bytes, std::size_t size, std::uint8_t value) {
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        return std::all_of(first, first + size, [=](std::uint8_t byte) { return byte == value; });
    };
    // Once without a channel, once with a driver that fails every command.
    for (const bool open : {false, true}) {
        SCOPED_TRACE(open);
        if (open) {
            ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
            Simulator().FailNext(ZOSIM_ANY_CODE, 0xC0000225, ZOSIM_FOR_EVER);
        } else {
            ZoProtector_Uninitialize();
        }
        std::uint32_t a = kOld, b = kOld, c = kOld;
        std::uint8_t records[2344];
        std::fill(std::begin(records), std::end(records), std::uint8_t{0xEE});
        ZopStatus status;
        std::memset(&status, 0xEE, sizeof status);
        ZopStats stats;
        std::memset(&stats, 0xEE, sizeof stats);
        ZopSignaturePolicy policy;
        std::memset(&policy, 0xEE, sizeof policy);

        EXPECT_LT(ZoProtector_GetVersion(&a, &b, &c), 0);
        EXPECT_EQ(a + b + c, 3 * kOld);
        EXPECT_LT(ZoProtector_GetStatus(&status), 0);
        EXPECT_TRUE(all(&status, sizeof status, 0xEE));
        EXPECT_LT(ZoProtector_GetMasterEnabled(&a), 0);
        EXPECT_EQ(a, 0u);
        EXPECT_LT(ZoProtector_GetSignaturePolicy(&policy), 0);
        EXPECT_TRUE(all(&policy, sizeof policy, 0));
        for (const auto ask : {&ZoProtector_QueryPidSignature, &ZoProtector_RefreshPidSignature}) {
            a = b = kOld;
            EXPECT_LT(ask(4, &a, &b), 0);
            EXPECT_EQ(a + b, 0u);
        }
        EXPECT_LT(ZoProtector_GetStats(&stats), 0);
        EXPECT_TRUE(all(&stats, sizeof stats, open ? 0 : 0xEE));
        a = kOld;
        EXPECT_LT(ZoProtector_GetUnsignedBypassAttempts(&a), 0);
        EXPECT_EQ(a, 0u);
        for (const auto drain : {&ZoProtector_DrainEvents, &ZoProtector_DrainRegistryEvents}) {
            a = b = c = kOld;
            EXPECT_LT(drain(5, records, 1, &a, &b, &c), 0);
            EXPECT_EQ(a + b + c, 0u);
            a = kOld;
            EXPECT_EQ(drain(5, records, 0, &a, &a, &a), ZOP_E_INVALID_ARG);
            EXPECT_EQ(a, kOld);
        }
        for (const auto list : {&ZoProtector_ListProcessProtectRules, &ZoProtector_ListFileProtectRules,
                                &ZoProtector_ListRegistryProtectRules, &ZoProtector_ListDllWhitelistRules}) {
            a = b = kOld;
            EXPECT_LT(list(records, 1, &a, &b), 0);
            EXPECT_EQ(a + b, 0u);
        }
        EXPECT_TRUE(all(records, sizeof records, 0xEE));
    }
    std::uint32_t written = kOld;
    std::uint8_t id[32];
    EXPECT_EQ(ZoProtector_GetHardwareIdBytes(id, 31, &written), ZOP_E_INVALID_ARG);
    EXPECT_EQ(written, 0u);
}

TEST_F(Statuses, FollowTheDriversErrorOnEveryCommand) {
    const struct {
        std::uint32_t ntStatus;
        std::uint32_t win32;
        int32_t status;
        bool logged;
    } errors[] = {
        {0xC0000034, 2, ZOP_E_DRIVER_NOT_FOUND, false},  {0xC00000C0, 55, ZOP_E_DRIVER_NOT_FOUND, false},
        {0xC0000022, 5, ZOP_E_ACCESS_DENIED, false},     {0xC00000BD, 52, ZOP_E_ALREADY_EXISTS, false},
        {0xC0000035, 183, ZOP_E_ALREADY_EXISTS, false},  {0xC000000D, 87, ZOP_E_INVALID_ARG, false},
        {0xC0000023, 122, ZOP_E_FAILED, false},          {0xC0000225, 1168, ZOP_E_NOT_FOUND, false},
        {0xC0000044, 1816, ZOP_E_QUOTA_EXCEEDED, false}, {0xC0000001, 31, ZOP_E_FAILED, true},
        {0x80000005, 234, ZOP_E_FAILED, true},
    };
    for (const auto& error : errors) {
        for (const Request& row : AllRequests()) {
            // All errors with one command, one silent and one logged error with all commands.
            const bool oneOfAll = error.win32 == 31 || error.win32 == 1168;
            if (!oneOfAll && row.code != ZOP_IOCTL_ADD_FILE_RULE) continue;
            Simulator().FailNext(row.code, error.ntStatus);
            EXPECT_EQ(row.call(), error.status) << row.line << " error " << error.win32;
            const std::string line =
                zo::Format("[ERROR] ZopSendIoctl: DeviceIoControl(0x{:08X}) failed, error={}", row.code, error.win32);
            EXPECT_EQ(Log(), error.logged ? Lines{line} : Lines()) << row.line << " error " << error.win32;
        }
    }
}

TEST_F(Statuses, RealTablesAnswerDuplicatesUnknownEntriesAndFullTables) {
    EXPECT_EQ(ZoProtector_AddProcessProtectByPath(L"C:\\a"), ZOP_OK);
    EXPECT_EQ(ZoProtector_AddProcessProtectByPath(L"C:\\A"), ZOP_E_ALREADY_EXISTS);
    EXPECT_EQ(ZoProtector_RemoveFileProtect(L"C:\\a"), ZOP_E_NOT_FOUND);
    Simulator().SetCapacity(ZOSIM_TABLE_PROCESS, 1);
    EXPECT_EQ(ZoProtector_AddProcessProtectByFolder(L"C:\\b", 1), ZOP_E_QUOTA_EXCEEDED);
    EXPECT_EQ(Log(), Lines{"[INFO ] AddProcessProtectByPath: Added 'C:\\a'"});
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_PROCESS], 1u);
}

}  // namespace
}  // namespace sdktest
