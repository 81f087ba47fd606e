// What every export answers when it is refused: by itself, by the driver, by the platform.

#include <cstring>

#include "import_hook.h"
#include "sdk_fixture.h"

namespace sdktest {
namespace {

using Statuses = SdkTest;

std::uint32_t n[600];  // outputs, of which records come last
std::uint8_t* const records = reinterpret_cast<std::uint8_t*>(n + 3);
wchar_t text[65];
const wchar_t* noName;  // null, or empty

// Exports that share their checks stand here for one another.
const Call kBadArguments[] = {
    ZOP_CALL(GetVersion(nullptr, n, n)),
    ZOP_CALL(GetVersion(n, nullptr, n)),
    ZOP_CALL(GetVersion(n, n, nullptr)),
    ZOP_CALL(GetStatus(nullptr)),
    ZOP_CALL(SetSignaturePolicy(nullptr)),
    ZOP_CALL(GetSignaturePolicy(nullptr)),
    ZOP_CALL(QueryPidSignature(4, nullptr, n)),
    ZOP_CALL(QueryPidSignature(4, n, nullptr)),
    ZOP_CALL(GetStats(nullptr)),
    ZOP_CALL(GetUnsignedBypassAttempts(nullptr)),
    ZOP_CALL(GetHardwareId(nullptr, 65)),
    ZOP_CALL(GetHardwareId(text, 64)),
    ZOP_CALL(GetHardwareIdBytes(nullptr, 32, n)),
    ZOP_CALL(GetHardwareIdBytes(records, 31, n)),
    ZOP_CALL(GetHardwareIdBytes(records, 32, nullptr)),
    ZOP_CALL(DrainEvents(0, nullptr, 1, n, n, n)),
    ZOP_CALL(DrainEvents(0, records, 1, nullptr, n, n)),
    ZOP_CALL(DrainEvents(0, records, 0, n, n, n)),
    ZOP_CALL(ListFileProtectRules(records, 1, nullptr, n)),
    ZOP_CALL(ListFileProtectRules(nullptr, 1, n, n)),
    ZOP_CALL(AddProcessProtectByPath(noName)),
    ZOP_CALL(AddProcessProtectByFolder(noName, 1)),
    ZOP_CALL(RemoveProcessProtect(noName)),
    ZOP_CALL(AddFileProtectByPath(noName)),
    ZOP_CALL(AddFileProtectByFolder(noName, 1, L"*")),
    ZOP_CALL(AddFileProtectScoped(noName, 0, 0, L"*", L"C:\\s", 0, 0, 0)),
    ZOP_CALL(AddFileProtectScoped(L"C:\\p", 0, 0, L"*", noName, 0, 0, 0)),
    ZOP_CALL(AddFileIgnoreProcess(noName, 0, 0)),
    ZOP_CALL(AddRegistryProtectByKey(noName, 1)),
    ZOP_CALL(RemoveRegistryProtect(noName)),
    ZOP_CALL(AddDllWhitelistFolder(noName, 1)),
};

// Wrong arguments are reported before anything else; without a channel nothing is sent.
TEST_F(Statuses, BadArgumentsAndAMissingChannelAreRefusedSilently) {
    const auto requests = RequestsOf([&] {
        for (const bool open : {true, false}) {
            if (!open) ZoProtector_Uninitialize();
            static_cast<void>(Log());
            for (const wchar_t* name : {static_cast<const wchar_t*>(nullptr), L""}) {
                noName = name;
                for (const Call& call : kBadArguments)
                    EXPECT_EQ(call.make(), ZOP_E_INVALID_ARG) << call.text << (name == nullptr ? " null" : " empty");
            }
            EXPECT_EQ(ZoProtector_GetMasterEnabled(nullptr), ZOP_E_STANDARD_INVALID_ARG);
            EXPECT_EQ(Log(), Lines());
        }
        for (const Request& row : AllRequests())
            EXPECT_EQ(row.call.make(), ZOP_E_NOT_INITIALIZED) << row.call.text;
        EXPECT_EQ(ZoProtector_Uninitialize(), ZOP_OK);  // any number of times
        EXPECT_EQ(Log(), Lines());
    });
    EXPECT_TRUE(requests.empty());
}

TEST_F(Statuses, OutputsAreZeroedExactlyWhereTheyAreMeantToBe) {
    const struct {
        Call call;
        std::size_t zeroed, zeroedWithoutChannel;  // bytes from the first on
    } cases[] = {
        {ZOP_CALL(GetStatus(reinterpret_cast<ZopStatus*>(n))), 0, 0},
        {ZOP_CALL(GetStats(reinterpret_cast<ZopStats*>(n))), sizeof(ZopStats), 0},
        {ZOP_CALL(GetSignaturePolicy(reinterpret_cast<ZopSignaturePolicy*>(n))), 8, 8},
        {ZOP_CALL(GetVersion(n, n + 1, n + 2)), 0, 0},
        {ZOP_CALL(GetMasterEnabled(n)), 4, 4},
        {ZOP_CALL(GetUnsignedBypassAttempts(n)), 4, 4},
        {ZOP_CALL(QueryPidSignature(4, n, n + 1)), 8, 8},
        {ZOP_CALL(RefreshPidSignature(4, n, n + 1)), 8, 8},
        {ZOP_CALL(DrainEvents(5, records, 1, n, n + 1, n + 2)), 12, 12},
        {ZOP_CALL(ListFileProtectRules(records, 1, n, n + 1)), 8, 8},
        {ZOP_CALL(GetHardwareIdBytes(records, 31, n)), 4, 4},
    };
    Simulator().FailNext(ZOSIM_ANY_CODE, 0xC0000225, ZOSIM_FOR_EVER);
    for (const bool open : {true, false}) {
        if (!open) ZoProtector_Uninitialize();
        for (const auto& row : cases) {
            std::memset(n, 0xEE, sizeof n);
            EXPECT_LT(row.call.make(), 0);
            const auto* const bytes = reinterpret_cast<const std::uint8_t*>(n);
            Bytes expected(open ? row.zeroed : row.zeroedWithoutChannel);
            expected.resize(sizeof n, 0xEE);
            EXPECT_EQ(Bytes(bytes, bytes + sizeof n), expected) << row.call.text << " " << open;
        }
    }
}

TEST_F(Statuses, FollowTheDriversErrorOnEveryCommand) {
    const struct {
        std::uint32_t ntStatus;
        std::uint32_t win32;
        int32_t status;
    } errors[] = {
        {0xC0000034, 2, ZOP_E_DRIVER_NOT_FOUND},  {0xC00000C0, 55, ZOP_E_DRIVER_NOT_FOUND},
        {0xC0000022, 5, ZOP_E_ACCESS_DENIED},     {0xC00000BD, 52, ZOP_E_ALREADY_EXISTS},
        {0xC0000035, 183, ZOP_E_ALREADY_EXISTS},  {0xC000000D, 87, ZOP_E_INVALID_ARG},
        {0xC0000023, 122, ZOP_E_FAILED},          {0xC0000225, 1168, ZOP_E_NOT_FOUND},
        {0xC0000044, 1816, ZOP_E_QUOTA_EXCEEDED}, {0xC0000001, 31, ZOP_E_FAILED},
        {0x80000005, 234, ZOP_E_FAILED},
    };
    for (const auto& error : errors) {
        for (const Request& row : AllRequests()) {
            SCOPED_TRACE(zo::Format("{}, error {}", row.call.text, error.win32));
            Simulator().FailNext(row.code, error.ntStatus);
            EXPECT_EQ(row.call.make(), error.status);
            const bool logged = error.status == ZOP_E_FAILED && error.win32 != 122;
            const std::string line =
                zo::Format("[ERROR] ZopSendIoctl: DeviceIoControl(0x{:08X}) failed, error={}", row.code, error.win32);
            EXPECT_EQ(Log(), logged ? Lines{line} : Lines());
        }
    }
}

// Names that cannot be converted are logged by the two exports that say so.
TEST_F(Statuses, OfNamesThatCannotBeConverted) {
    const std::string noDrive = "[ERROR] ZopConvertWin32PathToNtPath: QueryDosDeviceW failed for 'q:', error=2";
    const std::string process = "[ERROR] AddProcessProtectByPath: Path conversion failed for 'q:\\\xC3\xA9'";
    const std::string key = "[ERROR] AddRegistryProtectByKey: Path conversion failed for ";
    const zotest::ImportHook token("OpenProcessToken", &zotest::FailWith<ERROR_ACCESS_DENIED>);
    const struct {
        Call call;
        int32_t status;
        Lines lines;
    } cases[] = {
        {ZOP_CALL(AddProcessProtectByPath(L"q:\\\u00E9")), ZOP_E_FAILED, {noDrive, process}},
        {ZOP_CALL(AddRegistryProtectByKey(L"Software\\x", 0)), ZOP_E_INVALID_ARG, {key + "'Software\\x'"}},
        {ZOP_CALL(AddRegistryProtectByKey(L"HKCU\\x", 0)), ZOP_E_FAILED, {key + "'HKCU\\x'"}},
        {ZOP_CALL(RemoveRegistryProtect(L"HKCU\\x")), ZOP_E_FAILED, {}},
        {ZOP_CALL(AddProcessProtectByFolder(L"q:\\", 1)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(RemoveProcessProtect(L"q:\\")), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddFileProtectByFolder(L"q:\\", 0, nullptr)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddFileProtectScoped(L"C:\\a", 0, 0, nullptr, L"q:\\", 0, 0, 0)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddFileProtectScoped(L"q:\\", 0, 0, nullptr, L"C:\\a", 0, 0, 0)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddFileIgnoreProcess(L"q:\\", 0, 0)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddDllWhitelistFolder(L"q:\\", 1)), ZOP_E_FAILED, {noDrive}},
    };
    const auto requests = RequestsOf([&] {
        for (const auto& row : cases) {
            EXPECT_EQ(row.call.make(), row.status) << row.call.text;
            EXPECT_EQ(Log(), row.lines) << row.call.text;
        }
    });
    EXPECT_TRUE(requests.empty());
}

}  // namespace
}  // namespace sdktest
