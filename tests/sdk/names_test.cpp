// The kernel's names of what callers name as Win32 does, as they arrive at the driver.

#include "sdk_fixture.h"

namespace sdktest {
namespace {

class Names : public SdkTest {
  protected:
    // The name that was sent, which begins the record; the status when nothing was.
    template <typename Export, typename... Rest>
    std::string Sent(Export* add, const std::wstring& name, Rest... rest) {
        Simulator().Reset();  // two spellings of one name are one rule
        int32_t status = 0;
        const auto requests = RequestsOf([&] { status = add(name.c_str(), rest...); });
        if (requests.empty()) return zo::Format("status {:08X}", zo::Bits(status));
        EXPECT_EQ(status, ZOP_OK);
        return zo::Utf8FromWide(zotest::FieldText(reinterpret_cast<const std::uint16_t*>(requests[0].in), 520));
    }
};

constexpr const wchar_t* kInvalid = L"status 80000008";
constexpr const wchar_t* kFailed = L"status 80000009";

TEST_F(Names, OfPaths) {
    const std::wstring c = DeviceOfC();
    wchar_t windows[MAX_PATH] = {};
    GetWindowsDirectoryW(windows, MAX_PATH);
    wchar_t before[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, before);
    ASSERT_TRUE(SetCurrentDirectoryW(windows));
    const std::pair<const wchar_t*, const wchar_t*> drives[] = {{L"R:", L"\\??\\C:\\windows"},
                                                                {L"S:", L"\\Device\\HarddiskVolume77"}};
    for (const auto& [drive, target] : drives)
        EXPECT_TRUE(DefineDosDeviceW(DDD_RAW_TARGET_PATH, drive, target)) << GetLastError();
    const std::wstring longest = L"C:\\" + std::wstring(256, L'p');  // 259 characters

    const struct {
        std::wstring path, sent;
    } cases[] = {
        {L"C:\\Suite\\a.exe", c + L"\\Suite\\a.exe"},
        {L"c:\\data\\..\\temp\\a.exe", c + L"\\temp\\a.exe"},
        {L"C:\\", c + L"\\"},
        {L"C:\\folder\\", c + L"\\folder\\"},
        {L"R:\\x", L"\\??\\C:\\windows\\x"},
        {L"S:\\x", L"\\Device\\HarddiskVolume77\\x"},
        {L"tool.exe", c + std::wstring(windows + 2) + L"\\tool.exe"},
        {L"\\root.exe", c + L"\\root.exe"},
        {L"\\\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
        {L"\\\\?\\C:\\x.exe", L"\\\\?\\C:\\x.exe"},
        {longest, c + longest.substr(2)},
        {longest + L"p", kInvalid},
        {std::wstring(40000, L'p'), kInvalid},
        {L"Q:\\x", kFailed},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Sent(&ZoProtector_AddFileProtectByPath, row.path), zo::Utf8FromWide(row.sent));
    }
    for (const auto& [drive, target] : drives) {
        constexpr DWORD kRemove = DDD_RAW_TARGET_PATH | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE;
        DefineDosDeviceW(kRemove, drive, target);
    }
    SetCurrentDirectoryW(before);
}

TEST_F(Names, OfKeys) {
    // What the kernel itself calls the key of this process's user.
    HKEY user = nullptr;
    ASSERT_EQ(RegOpenCurrentUser(KEY_READ, &user), ERROR_SUCCESS);
    const zo::OwnedRegistryKey owner(user);
    using QueryKey = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    const auto queryKey = reinterpret_cast<QueryKey>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryKey")));
    alignas(8) std::uint8_t block[1024] = {};
    ULONG size = 0;
    ASSERT_EQ(queryKey(user, 3, block, sizeof block - 2, &size), 0);  // KeyNameInformation: a length, then the name
    const std::wstring ownKey = reinterpret_cast<const wchar_t*>(block + 4);
    const std::wstring userKey = L"\\REGISTRY\\USER\\" + ownKey.substr(ownKey.rfind(L'\\') + 1);

    const std::wstring machine = L"\\REGISTRY\\MACHINE\\";
    const struct {
        std::wstring key, sent;
    } cases[] = {
        {L"HKEY_LOCAL_MACHINE\\Software\\x", machine + L"Software\\x"},
        {L"hklm\\software\\X", machine + L"software\\X"},
        {L"HKLM\\", machine},
        {L"HKLM\\\\x", machine + L"\\x"},
        {L"HKEY_CLASSES_ROOT\\.x", machine + L"SOFTWARE\\Classes\\.x"},
        {L"HKEY_CURRENT_USER\\Software\\x", userKey + L"\\Software\\x"},
        {L"hKcu\\", userKey + L"\\"},
        {L"HKU\\.DEFAULT", L"\\REGISTRY\\USER\\.DEFAULT"},
        {L"\\registry\\machine\\x", L"\\registry\\machine\\x"},
        {L"\\REGISTRY\\", L"\\REGISTRY\\"},
        {L"HKLM\\" + std::wstring(493, L'k'), machine + std::wstring(493, L'k')},  // 511 characters
        {L"HKLM\\" + std::wstring(494, L'k'), kInvalid},
        {L"\\REGISTRY\\" + std::wstring(501, L'k'), L"\\REGISTRY\\" + std::wstring(501, L'k')},
        {L"\\REGISTRY\\" + std::wstring(502, L'k'), kInvalid},
        {L"HKCU\\" + std::wstring(511 - userKey.size(), L'k'), kInvalid},
        {L"HKLM", kInvalid},
        {L"HKLM/x", kInvalid},
        {L"HKPD\\x", kInvalid},
        // The Kelvin sign and the long s fold to k and s elsewhere, not here.
        {L"H\u212ALM\\x", kInvalid},
        {L"HKEY_U\u017FERS\\x", kInvalid},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Sent(&ZoProtector_AddRegistryProtectByKey, row.key, 0u), zo::Utf8FromWide(row.sent))
            << zo::Utf8FromWide(row.key);
    }
}

}  // namespace
}  // namespace sdktest
