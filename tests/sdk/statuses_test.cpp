// What every export answers when it is refused: by itself, by the driver, by the platform.

#include <algorithm>
#include <cstring>

#include "import_hook.h"
#include "sdk_fixture.h"

namespace sdktest {
namespace {

using Statuses = SdkTest;

std::uint32_t n[3];
std::uint8_t bytes[2344];
wchar_t text[65];
const wchar_t* noName;  // null, or empty

#define ZOP_BAD_DRAIN(name)                                                             \
    ZOP_CALL(name(0, nullptr, 1, n, n, n)), ZOP_CALL(name(0, bytes, 1, nullptr, n, n)), \
        ZOP_CALL(name(0, bytes, 0, n, n, n))
#define ZOP_BAD_LIST(name) ZOP_CALL(name(bytes, 1, nullptr, n)), ZOP_CALL(name(nullptr, 1, n, n))

const Call kBadArguments[] = {
    ZOP_CALL(GetVersion(nullptr, n, n)),
    ZOP_CALL(GetVersion(n, nullptr, n)),
    ZOP_CALL(GetVersion(n, n, nullptr)),
    ZOP_CALL(GetStatus(nullptr)),
    ZOP_CALL(SetSignaturePolicy(nullptr)),
    ZOP_CALL(GetSignaturePolicy(nullptr)),
    ZOP_CALL(QueryPidSignature(4, nullptr, n)),
    ZOP_CALL(QueryPidSignature(4, n, nullptr)),
    ZOP_CALL(RefreshPidSignature(4, nullptr, n)),
    ZOP_CALL(RefreshPidSignature(4, n, nullptr)),
    ZOP_CALL(GetStats(nullptr)),
    ZOP_CALL(GetUnsignedBypassAttempts(nullptr)),
    ZOP_CALL(GetHardwareId(nullptr, 65)),
    ZOP_CALL(GetHardwareId(text, 64)),
    ZOP_CALL(GetHardwareIdBytes(nullptr, 32, n)),
    ZOP_CALL(GetHardwareIdBytes(bytes, 31, n)),
    ZOP_CALL(GetHardwareIdBytes(bytes, 32, nullptr)),
    ZOP_BAD_DRAIN(DrainEvents),
    ZOP_BAD_DRAIN(DrainRegistryEvents),
    ZOP_BAD_LIST(ListProcessProtectRules),
    ZOP_BAD_LIST(ListFileProtectRules),
    ZOP_BAD_LIST(ListRegistryProtectRules),
    ZOP_BAD_LIST(ListDllWhitelistRules),
    ZOP_CALL(AddProcessProtectByPath(noName)),
    ZOP_CALL(AddProcessProtectByFolder(noName, 1)),
    ZOP_CALL(RemoveProcessProtect(noName)),
    ZOP_CALL(AddFileProtectByPath(noName)),
    ZOP_CALL(AddFileProtectByFolder(noName, 1, L"*")),
    ZOP_CALL(AddFileProtectScoped(noName, 0, 0, L"*", L"C:\\s", 0, 0, 0)),
    ZOP_CALL(AddFileProtectScoped(L"C:\\p", 0, 0, L"*", noName, 0, 0, 0)),
    ZOP_CALL(RemoveFileProtect(noName)),
    ZOP_CALL(AddFileIgnoreProcess(noName, 0, 0)),
    ZOP_CALL(RemoveFileIgnoreProcess(noName)),
    ZOP_CALL(AddRegistryProtectByKey(noName, 1)),
    ZOP_CALL(RemoveRegistryProtect(noName)),
    ZOP_CALL(AddRegistryIgnoreProcess(noName, 0, 0)),
    ZOP_CALL(RemoveRegistryIgnoreProcess(noName)),
    ZOP_CALL(AddDllWhitelistFolder(noName, 1)),
    ZOP_CALL(RemoveDllWhitelistFolder(noName)),
};

// Wrong arguments are told before anything else; without a channel nothing is sent.
TEST_F(Statuses, BadArgumentsAndAMissingChannelAreRefusedWithoutAWord) {
    const auto refuseBadArguments = [] {
        for (const wchar_t* name : {static_cast<const wchar_t*>(nullptr), L""}) {
            noName = name;
            for (const Call& call : kBadArguments)
                EXPECT_EQ(call.make(), ZOP_E_INVALID_ARG)
                    << call.text << (name == nullptr ? "" : " with an empty name");
        }
        EXPECT_EQ(ZoProtector_GetMasterEnabled(nullptr), ZOP_E_STANDARD_INVALID_ARG);
    };
    const auto requests = RequestsOf([&] {
        refuseBadArguments();
        EXPECT_EQ(Log(), Lines());
        ZoProtector_Uninitialize();
        static_cast<void>(Log());
        refuseBadArguments();
        for (const Request& row : AllRequests())
            EXPECT_EQ(row.call.make(), ZOP_E_NOT_INITIALIZED) << row.call.text;
        EXPECT_EQ(ZoProtector_Uninitialize(), ZOP_OK);  // any number of times
        EXPECT_EQ(Log(), Lines());
    });
    EXPECT_TRUE(requests.empty());
}

template <typename Record>
bool AllBytesAre(const Record& record, std::uint8_t value) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(&record);
    return std::all_of(first, first + sizeof record, [=](std::uint8_t byte) { return byte == value; });
}

TEST_F(Statuses, OutputsAreZeroedExactlyWhereTheyAreMeantToBe) {
    constexpr std::uint32_t kOld = 77;
    std::uint32_t a, b, c;
    const auto zeroes = [&](int32_t (*call)(std::uint32_t*, std::uint32_t*, std::uint32_t*)) {
        a = b = c = kOld;
        EXPECT_LT(call(&a, &b, &c), 0);
        return kOld - a + (kOld - b) + (kOld - c);  // 77 for each output
    };
    using Word = std::uint32_t*;
    // Once with a driver that fails every command, once without a channel.
    for (const bool open : {true, false}) {
        SCOPED_TRACE(open);
        Simulator().FailNext(ZOSIM_ANY_CODE, 0xC0000225, ZOSIM_FOR_EVER);
        if (!open) ZoProtector_Uninitialize();
        ZopStatus status;
        ZopStats stats;
        ZopSignaturePolicy policy;
        std::memset(&status, 0xEE, sizeof status);
        std::memset(&stats, 0xEE, sizeof stats);
        std::memset(bytes, 0xEE, sizeof bytes);
        EXPECT_LT(ZoProtector_GetStatus(&status), 0);
        EXPECT_TRUE(AllBytesAre(status, 0xEE));
        EXPECT_LT(ZoProtector_GetStats(&stats), 0);
        EXPECT_TRUE(AllBytesAre(stats, open ? 0 : 0xEE));
        std::memset(&policy, 0xEE, sizeof policy);
        EXPECT_LT(ZoProtector_GetSignaturePolicy(&policy), 0);
        EXPECT_TRUE(AllBytesAre(policy, 0));
        EXPECT_EQ(zeroes([](Word x, Word y, Word z) { return ZoProtector_GetVersion(x, y, z); }), 0u);
        EXPECT_EQ(zeroes([](Word x, Word, Word) { return ZoProtector_GetMasterEnabled(x); }), kOld);
        EXPECT_EQ(zeroes([](Word x, Word, Word) { return ZoProtector_GetUnsignedBypassAttempts(x); }), kOld);
        EXPECT_EQ(zeroes([](Word x, Word y, Word) { return ZoProtector_QueryPidSignature(4, x, y); }), 2 * kOld);
        EXPECT_EQ(zeroes([](Word x, Word y, Word) { return ZoProtector_RefreshPidSignature(4, x, y); }), 2 * kOld);
        EXPECT_EQ(zeroes([](Word x, Word y, Word z) { return ZoProtector_DrainEvents(5, bytes, 1, x, y, z); }),
                  3 * kOld);
        EXPECT_EQ(zeroes([](Word x, Word y, Word) { return ZoProtector_ListFileProtectRules(bytes, 1, x, y); }),
                  2 * kOld);
        EXPECT_TRUE(AllBytesAre(bytes, 0xEE));
    }
    EXPECT_EQ(zeroes([](Word x, Word, Word) { return ZoProtector_GetHardwareIdBytes(bytes, 31, x); }), kOld);
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
            // All errors with one command, one silent and one logged error with all commands.
            const bool oneOfAll = error.win32 == 31 || error.win32 == 1168;
            if (!oneOfAll && row.code != ZOP_IOCTL_ENABLE_FILE_PROTECT) continue;
            Simulator().FailNext(row.code, error.ntStatus);
            EXPECT_EQ(row.call.make(), error.status) << row.call.text << " error " << error.win32;
            const bool logged = error.status == ZOP_E_FAILED && error.win32 != 122;
            const std::string line =
                zo::Format("[ERROR] ZopSendIoctl: DeviceIoControl(0x{:08X}) failed, error={}", row.code, error.win32);
            EXPECT_EQ(Log(), logged ? Lines{line} : Lines()) << row.call.text << " error " << error.win32;
        }
    }
}

BOOL WINAPI NoToken(HANDLE, DWORD, HANDLE*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

// Names that cannot be converted are logged by the two exports that say so.
TEST_F(Statuses, OfNamesThatCannotBeConverted) {
    static const std::wstring tooLong = L"C:\\" + std::wstring(300, L'p');
    const std::string noDrive = "[ERROR] ZopConvertWin32PathToNtPath: QueryDosDeviceW failed for 'q:', error=2";
    const std::string process = "[ERROR] AddProcessProtectByPath: Path conversion failed for '";
    const std::string key = "[ERROR] AddRegistryProtectByKey: Path conversion failed for '";
    const zotest::ImportHook token("OpenProcessToken", &NoToken);
    const struct {
        Call call;
        int32_t status;
        Lines lines;
    } cases[] = {
        {ZOP_CALL(AddProcessProtectByPath(L"q:\\\u00E9")), ZOP_E_FAILED, {noDrive, process + "q:\\\xC3\xA9'"}},
        {ZOP_CALL(AddProcessProtectByPath(tooLong.c_str())),
         ZOP_E_INVALID_ARG,
         {process + zo::Utf8FromWide(tooLong) + "'"}},
        {ZOP_CALL(AddRegistryProtectByKey(L"Software\\x", 0)), ZOP_E_INVALID_ARG, {key + "Software\\x'"}},
        {ZOP_CALL(AddRegistryProtectByKey(L"HKCU\\x", 0)), ZOP_E_FAILED, {key + "HKCU\\x'"}},
        {ZOP_CALL(RemoveRegistryProtect(L"HKCU\\x")), ZOP_E_FAILED, {}},
        {ZOP_CALL(AddProcessProtectByFolder(L"q:\\", 1)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(RemoveProcessProtect(L"q:\\")), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddFileProtectScoped(L"C:\\a", 0, 0, nullptr, L"q:\\", 0, 0, 0)), ZOP_E_FAILED, {noDrive}},
        {ZOP_CALL(AddFileProtectScoped(tooLong.c_str(), 0, 0, nullptr, L"q:\\", 0, 0, 0)), ZOP_E_INVALID_ARG, {}},
        {ZOP_CALL(AddFileProtectByFolder(tooLong.c_str(), 0, nullptr)), ZOP_E_INVALID_ARG, {}},
        {ZOP_CALL(AddFileIgnoreProcess(tooLong.c_str(), 0, 0)), ZOP_E_INVALID_ARG, {}},
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
