// Every export's request, byte for byte, and its line in the log. The bytes are built here from offsets and lengths and
// not from the records' types, so that a wrong record does not agree with itself.

#include "sdk_fixture.h"

namespace sdktest {
namespace {

// The library takes the temporary folder once for the life of the process, so it is set before the first test.
struct Surroundings : testing::Environment, OwnTemporaryFolder {
    void TearDown() override { ZoProtector_Uninitialize(); }  // or else the log file could not be deleted
};
// GoogleTest deletes it. NOLINTNEXTLINE(cppcoreguidelines-owning-memory)
[[maybe_unused]] const auto* const surroundings = testing::AddGlobalTestEnvironment(new Surroundings);

Bytes Field(const std::wstring& text, std::size_t units) {
    Bytes bytes;
    for (const wchar_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    bytes.resize(units * 2);
    return bytes;
}
Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Bytes Path(const std::wstring& rest) {
    return Field(zotest::NtPath(L"C:") + rest, 520);
}
Bytes Key(const std::wstring& rest) {
    return Field(L"\\REGISTRY\\MACHINE\\" + rest, 512);
}
Bytes FileRule(const std::wstring& path, const Bytes& flags, const std::wstring& filter = {},
               const Bytes& scope = Bytes(1043)) {
    return Path(path) + flags + Field(filter, 128) + scope;
}

std::uint32_t out[3];
std::uint8_t records[3 * 1076];
const std::wstring longFilter = std::wstring(126, L'f') + L"\u00E9" + std::wstring(73, L'g');
const std::string longFilterLine = ": Added 'C:\\F3' Filter='" + zo::Utf8FromWide(longFilter) + "'";
constexpr ZopSignaturePolicy kPolicy = {2, 200, {9, 9, 9, 9, 9, 9}};
ZopSignaturePolicy policyOut;
ZopStatus status;
ZopStats stats;

}  // namespace

// One table. NOLINTNEXTLINE(readability-function-size)
const std::vector<Request>& AllRequests() {
    static const std::vector<Request> requests = {
        {ZOP_CALL(GetStatus(&status)), 0x8000C3C0, {}, nullptr, 20},
        {ZOP_CALL(GetVersion(out, out, out)), 0x8000C3C4, {}, nullptr, 12},
        {ZOP_CALL(SetMasterEnabled(-256)), 0x8000C3EC, {1}, ": Enabled"},
        {ZOP_CALL(SetMasterEnabled(0)), 0x8000C3EC, {0}, ": Disabled"},
        {ZOP_CALL(GetMasterEnabled(out)), 0x8000C3F0, {}, nullptr, 1},
        {ZOP_CALL(ForceCrash()), 0x8000C3F4, {}},

        {ZOP_CALL(AddProcessProtectByPath(L"C:\\a")), 0x8000C004, Path(L"\\a") + Bytes{0, 0}, ": Added 'C:\\a'"},
        {ZOP_CALL(AddProcessProtectByFolder(L"C:\\Z\u00FCrich \u20AC", 0xFFFFFF05)), 0x8000C004,
         Path(L"\\Z\u00FCrich \u20AC") + Bytes{1, 5}, ": Added 'C:\\Z\xC3\xBCrich \xE2\x82\xAC' (Recursive=-251)"},
        {ZOP_CALL(RemoveProcessProtect(L"C:/x/../a")), 0x8000C008, Path(L"\\a"), ": Removed 'C:/x/../a'"},
        {ZOP_CALL(ListProcessProtectRules(records, 3, out, nullptr)), 0x8000C010, {}, nullptr, 16 + 3 * 1044},
        {ZOP_CALL(ClearAllProcessProtect()), 0x8000C00C, {}, ": Cleared"},

        {ZOP_CALL(AddFileProtectByPath(L"C:\\d")), 0x8000C044, FileRule(L"\\d", {0, 0}), ": Added 'C:\\d'"},
        {ZOP_CALL(AddFileProtectByFolder(L"C:\\F", 2, L"*.exe")), 0x8000C044, FileRule(L"\\F", {1, 2}, L"*.exe"),
         ": Added 'C:\\F' Filter='*.exe'"},
        {ZOP_CALL(AddFileProtectByFolder(L"C:\\F1", 255, nullptr)), 0x8000C044, FileRule(L"\\F1", {1, 255}),
         ": Added 'C:\\F1' Filter='*'"},
        {ZOP_CALL(AddFileProtectByFolder(L"C:\\F2", 0, L"")), 0x8000C044, FileRule(L"\\F2", {1, 0}),
         ": Added 'C:\\F2' Filter=''"},
        {ZOP_CALL(AddFileProtectByFolder(L"C:\\F3", 1, longFilter.c_str())), 0x8000C044,
         FileRule(L"\\F3", {1, 1}, longFilter.substr(0, 127)), longFilterLine.c_str()},
        {ZOP_CALL(AddFileProtectScoped(L"C:\\S", 256, 0, L"a?", L"C:\\by.exe", 512, 0, 7)), 0x8000C044,
         FileRule(L"\\S", {1, 0}, L"a?", Path(L"\\by.exe") + Bytes{1, 0, 1}),
         ": 'C:\\S' Filter='a?' Scope='C:\\by.exe' Exclusive=1"},
        {ZOP_CALL(AddFileProtectScoped(L"C:\\S", 0, -1, nullptr, L"C:\\by3", 1, 3, 0)), 0x8000C044,
         FileRule(L"\\S", {0, 1}, L"", Path(L"\\by3") + Bytes{1, 1, 0}),
         ": 'C:\\S' Filter='*' Scope='C:\\by3' Exclusive=0"},
        {ZOP_CALL(RemoveFileProtect(L"C:\\d")), 0x8000C048, Path(L"\\d"), ": Removed 'C:\\d'"},
        {ZOP_CALL(EnableFileProtect(256)), 0x8000C050, {1}, ": Enabled"},
        {ZOP_CALL(AddFileIgnoreProcess(L"C:\\i", 256, 0)), 0x8000C054, Path(L"\\i") + Bytes{1, 0},
         ": Added 'C:\\i' (Folder=1, Recursive=0)"},
        {ZOP_CALL(RemoveFileIgnoreProcess(L"C:\\i")), 0x8000C058, Path(L"\\i"), ": Removed 'C:\\i'"},
        {ZOP_CALL(ClearAllFileIgnoreProcesses()), 0x8000C05C, {}, ": Cleared"},
        {ZOP_CALL(ClearAllFileProtect()), 0x8000C04C, {}, ": Cleared"},
        {ZOP_CALL(ListFileProtectRules(records, 1, out, nullptr)), 0x8000C060, {}, nullptr, 16 + 2344},

        {ZOP_CALL(AddRegistryProtectByKey(L"HKLM\\x", 0xFFFFFF02)), 0x8000C084, Key(L"x") + Bytes{2},
         ": Added 'HKLM\\x' (Recursive=-254)"},
        {ZOP_CALL(RemoveRegistryProtect(L"hklm\\x")), 0x8000C088, Key(L"x"), ": Removed 'hklm\\x'"},
        {ZOP_CALL(AddRegistryIgnoreProcess(L"C:\\i", 0, 4)), 0x8000C090, Path(L"\\i") + Bytes{0, 1},
         ": Added 'C:\\i' (Folder=0, Recursive=1)"},
        {ZOP_CALL(RemoveRegistryIgnoreProcess(L"C:\\i")), 0x8000C094, Path(L"\\i"), ": Removed 'C:\\i'"},
        {ZOP_CALL(ClearAllRegistryIgnoreProcesses()), 0x8000C098, {}, ": Cleared"},
        {ZOP_CALL(ListRegistryProtectRules(records, 3, out, out)), 0x8000C0A0, {}, nullptr, 16 + 3 * 1028},
        {ZOP_CALL(ClearAllRegistryProtect()), 0x8000C08C, {}, ": Cleared"},
        {ZOP_CALL(DrainRegistryEvents(0x01020304, records, 3, out, nullptr, nullptr)),
         0x8000C09C,
         {4, 3, 2, 1, 3, 0, 0, 0},
         nullptr,
         16 + 3 * 1076},

        {ZOP_CALL(SetSignaturePolicy(&kPolicy)), 0x8000C3D8, {2, 200, 0, 0, 0, 0, 0, 0}, ": Mode=2 MinLevel=200"},
        {ZOP_CALL(GetSignaturePolicy(&policyOut)), 0x8000C3D4, {}, nullptr, 8},
        {ZOP_CALL(QueryPidSignature(0x01020304, out, out)), 0x8000C3D0, {4, 3, 2, 1, 0, 0, 0, 0}, nullptr, 8},
        {ZOP_CALL(RefreshPidSignature(0x01020304, out, out)), 0x8000C3DC, {4, 3, 2, 1, 0, 0, 0, 0}, nullptr, 8},
        {ZOP_CALL(AddSignatureOverride(0xFFFFFFFE)), 0x8000C3E0, {0xFE, 255, 255, 255, 0, 0, 0, 0}, ": PID=4294967294"},
        {ZOP_CALL(RemoveSignatureOverride(0xFFFFFFFE)),
         0x8000C3E4,
         {0xFE, 255, 255, 255, 0, 0, 0, 0},
         ": PID=4294967294"},
        {ZOP_CALL(ClearAllSignatureOverrides()), 0x8000C3E8, {}, ""},
        {ZOP_CALL(EnableDllLoadFilter(2)), 0x8000C0C4, {2}, ": Enabled"},
        {ZOP_CALL(EnableDllLoadFilter(256)), 0x8000C0C4, {0}, ": Enabled"},
        {ZOP_CALL(AddDllWhitelistFolder(L"C:\\d", 0x80000002)), 0x8000C0C8, Path(L"\\d") + Bytes{2},
         ": Added 'C:\\d' (Recursive=-2147483646)"},
        {ZOP_CALL(RemoveDllWhitelistFolder(L"C:\\d")), 0x8000C0CC, Path(L"\\d"), ": Removed 'C:\\d'"},
        {ZOP_CALL(ListDllWhitelistRules(records, 1, out, out)), 0x8000C0D4, {}, nullptr, 16 + 1044},
        {ZOP_CALL(ClearAllDllWhitelist()), 0x8000C0D0, {}, ": Cleared"},
        {ZOP_CALL(DrainEvents(0xFFFFFFFF, records, 2, out, out, out)),
         0x8000C3CC,
         {255, 255, 255, 255, 2, 0, 0, 0},
         nullptr,
         16 + 2 * 562},
        {ZOP_CALL(GetStats(&stats)), 0x8000C3C8, {}, nullptr, 76},
        {ZOP_CALL(GetUnsignedBypassAttempts(out)), 0x8000C3C8, {}, nullptr, 76},
    };
    return requests;
}

using Requests = SdkTest;

TEST_F(Requests, CarryExactlyTheirRecordAndLeaveOneLine) {
    Simulator().SetPidSignature({0x01020304, 1, 0, 1, 1, 0});
    for (const Request& row : AllRequests()) {
        SCOPED_TRACE(row.call.text);
        const auto requests = RequestsOf([&] { EXPECT_EQ(row.call.make(), ZOP_OK); });
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].code, row.code);
        ASSERT_EQ(requests[0].inLength, row.in.size());
        EXPECT_EQ(Bytes(requests[0].in, requests[0].in + row.in.size()), row.in);
        EXPECT_EQ(requests[0].outLength, row.outLength);
        const std::string text = row.call.text;
        const std::string name = text.substr(0, text.find('('));
        EXPECT_EQ(Log(), row.line == nullptr ? Lines() : Lines{"[INFO ] " + name + row.line});
    }
}

}  // namespace sdktest
