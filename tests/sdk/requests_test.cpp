// Every export's request, byte for byte, and its line in the log. The bytes are built here from offsets and lengths and
// not from the records' types, so that a wrong record does not agree with itself.

#include "sdk_fixture.h"

namespace sdktest {
namespace {

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new OwnTemporaryFolder);

// Text in a field of so many units, then single bytes.
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

std::vector<Request> MakeRequests() {
    const auto path = [](const std::wstring& rest) { return Field(DeviceOfC() + rest, 520); };
    const auto key = [](const std::wstring& name) { return Field(name, 512); };
    const auto filter = [](const std::wstring& text) { return Field(text, 128); };
    const Bytes noScope = Field(L"", 520);
    static std::uint32_t out[4];
    static std::vector<std::uint8_t> records(3 * 2344);
    static const std::wstring longFilter = std::wstring(126, L'f') + L"\u00E9" + std::wstring(73, L'g');
    static const ZopSignaturePolicy policy = {2, 200, {9, 9, 9, 9, 9, 9}};
    static ZopSignaturePolicy policyOut;
    static ZopStatus status;
    static ZopStats stats;
    const Bytes none;

    return {
        {[] { return ZoProtector_GetStatus(&status); }, 0x8000C3C0, none, 20, ""},
        {[] { return ZoProtector_GetVersion(out, out + 1, out + 2); }, 0x8000C3C4, none, 12, ""},
        {[] { return ZoProtector_SetMasterEnabled(-7); }, 0x8000C3EC, {1}, 0, "[INFO ] SetMasterEnabled: Enabled"},
        {[] { return ZoProtector_SetMasterEnabled(0x100); }, 0x8000C3EC, {1}, 0, "[INFO ] SetMasterEnabled: Enabled"},
        {[] { return ZoProtector_SetMasterEnabled(0); }, 0x8000C3EC, {0}, 0, "[INFO ] SetMasterEnabled: Disabled"},
        {[] { return ZoProtector_GetMasterEnabled(out); }, 0x8000C3F0, none, 1, ""},
        {[] { return ZoProtector_ForceCrash(); }, 0x8000C3F4, none, 0, ""},

        {[] { return ZoProtector_AddProcessProtectByPath(L"C:\\Suite\\a.exe"); }, 0x8000C004,
         path(L"\\Suite\\a.exe") + Bytes{0, 0}, 0, "[INFO ] AddProcessProtectByPath: Added 'C:\\Suite\\a.exe'"},
        {[] { return ZoProtector_AddProcessProtectByFolder(L"C:\\Suite", 5); }, 0x8000C004,
         path(L"\\Suite") + Bytes{1, 5}, 0, "[INFO ] AddProcessProtectByFolder: Added 'C:\\Suite' (Recursive=5)"},
        {[] { return ZoProtector_AddProcessProtectByFolder(L"C:\\Suite2\\", 256); }, 0x8000C004,
         path(L"\\Suite2\\") + Bytes{1, 0}, 0,
         "[INFO ] AddProcessProtectByFolder: Added 'C:\\Suite2\\' (Recursive=256)"},
        {[] { return ZoProtector_AddProcessProtectByFolder(L"C:\\Z\u00FCrich \u20AC", 0xFFFFFFFE); }, 0x8000C004,
         path(L"\\Z\u00FCrich \u20AC") + Bytes{1, 0xFE}, 0,
         "[INFO ] AddProcessProtectByFolder: Added 'C:\\Z\xC3\xBCrich \xE2\x82\xAC' (Recursive=-2)"},
        {[] { return ZoProtector_RemoveProcessProtect(L"C:/Suite/x/../a.exe"); }, 0x8000C008, path(L"\\Suite\\a.exe"),
         0, "[INFO ] RemoveProcessProtect: Removed 'C:/Suite/x/../a.exe'"},
        {[] { return ZoProtector_ListProcessProtectRules(records.data(), 3, out, nullptr); }, 0x8000C010, none,
         16 + 3 * 1044, ""},
        {[] { return ZoProtector_ClearAllProcessProtect(); }, 0x8000C00C, none, 0,
         "[INFO ] ClearAllProcessProtect: Cleared"},

        {[] { return ZoProtector_AddFileProtectByPath(L"C:\\data.db"); }, 0x8000C044,
         path(L"\\data.db") + Bytes{0, 0} + filter(L"") + noScope + Bytes{0, 0, 0}, 0,
         "[INFO ] AddFileProtectByPath: Added 'C:\\data.db'"},
        {[] { return ZoProtector_AddFileProtectByFolder(L"C:\\Suite", 2, L"*.exe"); }, 0x8000C044,
         path(L"\\Suite") + Bytes{1, 2} + filter(L"*.exe") + noScope + Bytes{0, 0, 0}, 0,
         "[INFO ] AddFileProtectByFolder: Added 'C:\\Suite' Filter='*.exe'"},
        {[] { return ZoProtector_AddFileProtectByFolder(L"C:\\F1", 255, nullptr); }, 0x8000C044,
         path(L"\\F1") + Bytes{1, 255} + filter(L"") + noScope + Bytes{0, 0, 0}, 0,
         "[INFO ] AddFileProtectByFolder: Added 'C:\\F1' Filter='*'"},
        {[] { return ZoProtector_AddFileProtectByFolder(L"C:\\F2", 0, L""); }, 0x8000C044,
         path(L"\\F2") + Bytes{1, 0} + filter(L"") + noScope + Bytes{0, 0, 0}, 0,
         "[INFO ] AddFileProtectByFolder: Added 'C:\\F2' Filter=''"},
        {[] { return ZoProtector_AddFileProtectByFolder(L"C:\\F3", 1, longFilter.c_str()); }, 0x8000C044,
         path(L"\\F3") + Bytes{1, 1} + filter(longFilter.substr(0, 127)) + noScope + Bytes{0, 0, 0}, 0,
         "[INFO ] AddFileProtectByFolder: Added 'C:\\F3' Filter='" + zo::Utf8FromWide(longFilter) + "'"},
        {[] { return ZoProtector_AddFileProtectScoped(L"C:\\S", 256, -1, L"a?", L"C:\\by.exe", 512, 3, 7); },
         0x8000C044, path(L"\\S") + Bytes{1, 1} + filter(L"a?") + path(L"\\by.exe") + Bytes{1, 1, 1}, 0,
         "[INFO ] AddFileProtectScoped: 'C:\\S' Filter='a?' Scope='C:\\by.exe' Exclusive=1"},
        {[] { return ZoProtector_AddFileProtectScoped(L"C:\\S", 0, 0, nullptr, L"C:\\by2.exe", 0, 0, 0); }, 0x8000C044,
         path(L"\\S") + Bytes{0, 0} + filter(L"") + path(L"\\by2.exe") + Bytes{0, 0, 0}, 0,
         "[INFO ] AddFileProtectScoped: 'C:\\S' Filter='*' Scope='C:\\by2.exe' Exclusive=0"},
        {[] { return ZoProtector_AddFileProtectScoped(L"C:\\S", 0, 1, nullptr, L"C:\\by3", 1, 0, 0); }, 0x8000C044,
         path(L"\\S") + Bytes{0, 1} + filter(L"") + path(L"\\by3") + Bytes{1, 0, 0}, 0,
         "[INFO ] AddFileProtectScoped: 'C:\\S' Filter='*' Scope='C:\\by3' Exclusive=0"},
        {[] { return ZoProtector_AddFileProtectScoped(L"C:\\S", 1, 0, nullptr, L"C:\\by4", 0, 1, 0); }, 0x8000C044,
         path(L"\\S") + Bytes{1, 0} + filter(L"") + path(L"\\by4") + Bytes{0, 1, 0}, 0,
         "[INFO ] AddFileProtectScoped: 'C:\\S' Filter='*' Scope='C:\\by4' Exclusive=0"},
        {[] { return ZoProtector_RemoveFileProtect(L"C:\\data.db"); }, 0x8000C048, path(L"\\data.db"), 0,
         "[INFO ] RemoveFileProtect: Removed 'C:\\data.db'"},
        {[] { return ZoProtector_EnableFileProtect(256); }, 0x8000C050, {1}, 0, "[INFO ] EnableFileProtect: Enabled"},
        {[] { return ZoProtector_EnableFileProtect(0); }, 0x8000C050, {0}, 0, "[INFO ] EnableFileProtect: Disabled"},
        {[] { return ZoProtector_AddFileIgnoreProcess(L"C:\\i", 256, -2); }, 0x8000C054, path(L"\\i") + Bytes{1, 1}, 0,
         "[INFO ] AddFileIgnoreProcess: Added 'C:\\i' (Folder=1, Recursive=1)"},
        {[] { return ZoProtector_AddFileIgnoreProcess(L"C:\\j", 1, 0); }, 0x8000C054, path(L"\\j") + Bytes{1, 0}, 0,
         "[INFO ] AddFileIgnoreProcess: Added 'C:\\j' (Folder=1, Recursive=0)"},
        {[] { return ZoProtector_RemoveFileIgnoreProcess(L"C:\\i"); }, 0x8000C058, path(L"\\i"), 0,
         "[INFO ] RemoveFileIgnoreProcess: Removed 'C:\\i'"},
        {[] { return ZoProtector_ClearAllFileIgnoreProcesses(); }, 0x8000C05C, none, 0,
         "[INFO ] ClearAllFileIgnoreProcesses: Cleared"},
        {[] { return ZoProtector_ListFileProtectRules(nullptr, 0, out, nullptr); }, 0x8000C060, none, 16,
         "[WARN ] ListRules(ioctl=0x8000C060): 8 rules truncated (total=8, returned=0) -- supply a larger buffer"},
        {[] { return ZoProtector_ClearAllFileProtect(); }, 0x8000C04C, none, 0, "[INFO ] ClearAllFileProtect: Cleared"},

        {[] { return ZoProtector_AddRegistryProtectByKey(L"HKLM\\SOFTWARE\\Suite", 2); }, 0x8000C084,
         key(L"\\REGISTRY\\MACHINE\\SOFTWARE\\Suite") + Bytes{2}, 0,
         "[INFO ] AddRegistryProtectByKey: Added 'HKLM\\SOFTWARE\\Suite' (Recursive=2)"},
        {[] { return ZoProtector_AddRegistryProtectByKey(L"HKCR\\.x", 0xFFFFFF00); }, 0x8000C084,
         key(L"\\REGISTRY\\MACHINE\\SOFTWARE\\Classes\\.x") + Bytes{0}, 0,
         "[INFO ] AddRegistryProtectByKey: Added 'HKCR\\.x' (Recursive=-256)"},
        {[] { return ZoProtector_RemoveRegistryProtect(L"hklm\\SOFTWARE\\Suite"); }, 0x8000C088,
         key(L"\\REGISTRY\\MACHINE\\SOFTWARE\\Suite"), 0,
         "[INFO ] RemoveRegistryProtect: Removed 'hklm\\SOFTWARE\\Suite'"},
        {[] { return ZoProtector_AddRegistryIgnoreProcess(L"C:\\i", 0, 4); }, 0x8000C090, path(L"\\i") + Bytes{0, 1}, 0,
         "[INFO ] AddRegistryIgnoreProcess: Added 'C:\\i' (Folder=0, Recursive=1)"},
        {[] { return ZoProtector_RemoveRegistryIgnoreProcess(L"C:\\i"); }, 0x8000C094, path(L"\\i"), 0,
         "[INFO ] RemoveRegistryIgnoreProcess: Removed 'C:\\i'"},
        {[] { return ZoProtector_ClearAllRegistryIgnoreProcesses(); }, 0x8000C098, none, 0,
         "[INFO ] ClearAllRegistryIgnoreProcesses: Cleared"},
        {[] { return ZoProtector_ListRegistryProtectRules(records.data(), 3, out, out + 1); }, 0x8000C0A0, none,
         16 + 3 * 1028, ""},
        {[] { return ZoProtector_ClearAllRegistryProtect(); }, 0x8000C08C, none, 0,
         "[INFO ] ClearAllRegistryProtect: Cleared"},
        {[] { return ZoProtector_DrainRegistryEvents(0x01020304, records.data(), 3, out, nullptr, nullptr); },
         0x8000C09C, Bytes{4, 3, 2, 1, 3, 0, 0, 0}, 16 + 3 * 1076, ""},

        {[] { return ZoProtector_SetSignaturePolicy(&policy); },
         0x8000C3D8,
         {2, 200, 0, 0, 0, 0, 0, 0},
         0,
         "[INFO ] SetSignaturePolicy: Mode=2 MinLevel=200"},
        {[] { return ZoProtector_GetSignaturePolicy(&policyOut); }, 0x8000C3D4, none, 8, ""},
        {[] { return ZoProtector_QueryPidSignature(0x01020304, out, out + 1); },
         0x8000C3D0,
         {4, 3, 2, 1, 0, 0, 0, 0},
         8,
         ""},
        {[] { return ZoProtector_RefreshPidSignature(0x01020304, out, out + 1); },
         0x8000C3DC,
         {4, 3, 2, 1, 0, 0, 0, 0},
         8,
         ""},
        {[] { return ZoProtector_AddSignatureOverride(0); }, 0x8000C3E0, Bytes(8), 0,
         "[INFO ] AddSignatureOverride: PID=0"},
        {[] { return ZoProtector_AddSignatureOverride(0xFFFFFFFE); },
         0x8000C3E0,
         {0xFE, 255, 255, 255, 0, 0, 0, 0},
         0,
         "[INFO ] AddSignatureOverride: PID=4294967294"},
        {[] { return ZoProtector_RemoveSignatureOverride(0); }, 0x8000C3E4, Bytes(8), 0,
         "[INFO ] RemoveSignatureOverride: PID=0"},
        {[] { return ZoProtector_ClearAllSignatureOverrides(); }, 0x8000C3E8, none, 0,
         "[INFO ] ClearAllSignatureOverrides"},
        {[] { return ZoProtector_EnableDllLoadFilter(2); }, 0x8000C0C4, {2}, 0, "[INFO ] EnableDllLoadFilter: Enabled"},
        {[] { return ZoProtector_EnableDllLoadFilter(256); },
         0x8000C0C4,
         {0},
         0,
         "[INFO ] EnableDllLoadFilter: Enabled"},
        {[] { return ZoProtector_EnableDllLoadFilter(0); },
         0x8000C0C4,
         {0},
         0,
         "[INFO ] EnableDllLoadFilter: Disabled"},
        {[] { return ZoProtector_AddDllWhitelistFolder(L"C:\\d", 2); }, 0x8000C0C8, path(L"\\d") + Bytes{2}, 0,
         "[INFO ] AddDllWhitelistFolder: Added 'C:\\d' (Recursive=2)"},
        {[] { return ZoProtector_AddDllWhitelistFolder(L"C:\\e", 0x80000000); }, 0x8000C0C8, path(L"\\e") + Bytes{0}, 0,
         "[INFO ] AddDllWhitelistFolder: Added 'C:\\e' (Recursive=-2147483648)"},
        {[] { return ZoProtector_RemoveDllWhitelistFolder(L"C:\\d"); }, 0x8000C0CC, path(L"\\d"), 0,
         "[INFO ] RemoveDllWhitelistFolder: Removed 'C:\\d'"},
        {[] { return ZoProtector_ListDllWhitelistRules(records.data(), 1, out, out + 1); }, 0x8000C0D4, none, 16 + 1044,
         ""},
        {[] { return ZoProtector_ClearAllDllWhitelist(); }, 0x8000C0D0, none, 0,
         "[INFO ] ClearAllDllWhitelist: Cleared"},
        {[] { return ZoProtector_DrainEvents(0xFFFFFFFF, records.data(), 2, out, out + 1, out + 2); }, 0x8000C3CC,
         Bytes{255, 255, 255, 255, 2, 0, 0, 0}, 16 + 2 * 562, ""},
        {[] { return ZoProtector_GetStats(&stats); }, 0x8000C3C8, none, 76, ""},
        {[] { return ZoProtector_GetUnsignedBypassAttempts(out); }, 0x8000C3C8, none, 76, ""},
    };
}

class Requests : public SdkTest {};

TEST_F(Requests, CarryExactlyTheirRecordAndLeaveOneLine) {
    Simulator().SetPidSignature({0x01020304, 1, 0, 1, 1, 0});
    int index = 0;
    for (const Request& row : AllRequests()) {
        SCOPED_TRACE(zo::Format("row {}, code 0x{:08X}, {}", index++, row.code, row.line));
        const auto requests = RequestsOf([&] { EXPECT_EQ(row.call(), ZOP_OK); });
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].code, row.code);
        ASSERT_EQ(requests[0].inLength, row.in.size());
        EXPECT_EQ(Bytes(requests[0].in, requests[0].in + row.in.size()), row.in);
        EXPECT_EQ(requests[0].outLength, row.outLength);
        EXPECT_EQ(Log(), row.line.empty() ? Lines() : Lines{row.line});
    }
}

}  // namespace

const std::vector<Request>& AllRequests() {
    static const std::vector<Request> requests = MakeRequests();
    return requests;
}

}  // namespace sdktest
