// The kernel's names of what callers name as Win32 does, as they arrive at the driver.

#include "sdk_fixture.h"

namespace sdktest {
namespace {

class Names : public SdkTest {
  protected:
    // The name that was sent; the status when nothing was.
    std::wstring PathSent(const std::wstring& path) {
        return Sent([&] { return ZoProtector_AddFileProtectByPath(path.c_str()); }, ZOP_PATH_UNITS);
    }
    std::wstring KeySent(const std::wstring& key) {
        return Sent([&] { return ZoProtector_AddRegistryProtectByKey(key.c_str(), 0); }, ZOP_KEY_UNITS);
    }

  private:
    std::wstring Sent(const std::function<int32_t()>& call, std::size_t units) {
        Simulator().Reset();  // two spellings of one name are one rule
        int32_t status = 0;
        const auto requests = RequestsOf([&] { status = call(); });
        if (requests.empty()) return zo::WideFromUtf8(zo::Format("status {:08X}", zo::Bits(status)));
        EXPECT_EQ(status, ZOP_OK);
        std::vector<std::uint16_t> field(units);
        memcpy(field.data(), requests[0].in, units * 2);
        return zotest::FieldText(field.data(), units);
    }
};

constexpr const wchar_t* kInvalid = L"status 80000008";
constexpr const wchar_t* kFailed = L"status 80000009";

// A drive letter with targets of its own.
class DosDrive {
  public:
    DosDrive(const wchar_t* drive, const wchar_t* target, DWORD flags = DDD_RAW_TARGET_PATH)
        : drive_(drive), target_(target), flags_(flags) {
        EXPECT_TRUE(DefineDosDeviceW(flags, drive, target)) << GetLastError();
    }
    ~DosDrive() { DefineDosDeviceW(flags_ | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE, drive_, target_); }

  private:
    const wchar_t* drive_;
    const wchar_t* target_;
    DWORD flags_;
};

TEST_F(Names, OfPaths) {
    const std::wstring c = DeviceOfC();
    wchar_t windows[MAX_PATH] = {};
    GetWindowsDirectoryW(windows, MAX_PATH);
    wchar_t before[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, before);
    ASSERT_TRUE(SetCurrentDirectoryW(windows));
    const DosDrive subst(L"R:", L"C:\\windows", 0);
    const DosDrive raw(L"S:", L"\\Device\\HarddiskVolume77");
    const std::wstring longest = L"C:\\" + std::wstring(256, L'p');  // 259 characters

    const struct {
        std::wstring path, sent;
    } cases[] = {
        {L"C:\\Suite\\a.exe", c + L"\\Suite\\a.exe"},
        {L"c:\\data\\..\\temp\\a.exe", c + L"\\temp\\a.exe"},
        {L"C:/a/./b", c + L"\\a\\b"},
        {L"C:\\", c + L"\\"},
        {L"C:\\folder\\", c + L"\\folder\\"},
        {L"R:\\x", L"\\??\\C:\\windows\\x"},
        {L"S:\\x", L"\\Device\\HarddiskVolume77\\x"},
        {L"tool.exe", c + std::wstring(windows + 2) + L"\\tool.exe"},
        {L"\\root.exe", c + L"\\root.exe"},
        {L"\\\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
        {L"\\\\?\\C:\\x.exe", L"\\\\?\\C:\\x.exe"},
        {L"\\\\.\\C:\\x.exe", L"\\\\.\\C:\\x.exe"},
        {longest, c + longest.substr(2)},
        {longest + L"p", kInvalid},
        {std::wstring(40000, L'p'), kInvalid},
        {L"Q:\\x", kFailed},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(zo::Utf8FromWide(PathSent(row.path)), zo::Utf8FromWide(row.sent))
            << zo::Utf8FromWide(row.path).substr(0, 80);
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
        {L"hKcR\\.x", machine + L"SOFTWARE\\Classes\\.x"},
        {L"HKEY_CURRENT_USER\\Software\\x", userKey + L"\\Software\\x"},
        {L"hkcu\\", userKey + L"\\"},
        {L"HKEY_USERS\\S-1-5-18\\x", L"\\REGISTRY\\USER\\S-1-5-18\\x"},
        {L"HKU\\.DEFAULT", L"\\REGISTRY\\USER\\.DEFAULT"},
        {L"\\registry\\machine\\x", L"\\registry\\machine\\x"},
        {L"\\REGISTRY\\", L"\\REGISTRY\\"},
        {L"HKLM\\" + std::wstring(493, L'k'), machine + std::wstring(493, L'k')},  // 511 characters
        {L"HKLM\\" + std::wstring(494, L'k'), kInvalid},
        {L"HKU\\" + std::wstring(497, L'k'), kInvalid},
        {L"\\REGISTRY\\" + std::wstring(501, L'k'), L"\\REGISTRY\\" + std::wstring(501, L'k')},
        {L"\\REGISTRY\\" + std::wstring(502, L'k'), kInvalid},
        {L"HKCU\\" + std::wstring(511 - userKey.size(), L'k'), kInvalid},
        {L"HKLM", kInvalid},
        {L"HKLM/x", kInvalid},
        {L"HKPD\\x", kInvalid},
        {L"Registry\\x", kInvalid},
        {L"Software\\x", kInvalid},
        {L"\\REGISTRY", kInvalid},
        // The Kelvin sign and the long s fold to k and s elsewhere, not here.
        {L"H\u212ALM\\x", kInvalid},
        {L"HKEY_U\u017FERS\\x", kInvalid},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(zo::Utf8FromWide(KeySent(row.key)), zo::Utf8FromWide(row.sent)) << zo::Utf8FromWide(row.key);
    }
}

TEST_F(Names, ThatCannotBeConvertedAreLoggedByTheTwoExportsThatSaySo) {
    const std::string noDrive = "[ERROR] ZopConvertWin32PathToNtPath: QueryDosDeviceW failed for 'q:', error=2";
    const std::wstring tooLong = L"C:\\" + std::wstring(300, L'p');
    const std::string tooLongText = zo::Utf8FromWide(tooLong);
    const struct {
        std::function<int32_t()> call;
        int32_t status;
        Lines lines;
    } cases[] = {
        {[] { return ZoProtector_AddProcessProtectByPath(L"q:\\\u00E9"); },
         ZOP_E_FAILED,
         {noDrive, "[ERROR] AddProcessProtectByPath: Path conversion failed for 'q:\\\xC3\xA9'"}},
        {[&] { return ZoProtector_AddProcessProtectByPath(tooLong.c_str()); },
         ZOP_E_INVALID_ARG,
         {"[ERROR] AddProcessProtectByPath: Path conversion failed for '" + tooLongText + "'"}},
        {[] { return ZoProtector_AddRegistryProtectByKey(L"Software\\x", 0); },
         ZOP_E_INVALID_ARG,
         {"[ERROR] AddRegistryProtectByKey: Path conversion failed for 'Software\\x'"}},
        {[] { return ZoProtector_RemoveRegistryProtect(L"Software\\x"); }, ZOP_E_INVALID_ARG, {}},
        {[] { return ZoProtector_AddProcessProtectByFolder(L"q:\\", 1); }, ZOP_E_FAILED, {noDrive}},
        {[] { return ZoProtector_RemoveProcessProtect(L"q:\\"); }, ZOP_E_FAILED, {noDrive}},
        {[] { return ZoProtector_AddFileProtectScoped(L"C:\\a", 0, 0, nullptr, L"q:\\", 0, 0, 0); },
         ZOP_E_FAILED,
         {noDrive}},
        {[&] { return ZoProtector_AddFileProtectScoped(tooLong.c_str(), 0, 0, nullptr, L"q:\\", 0, 0, 0); },
         ZOP_E_INVALID_ARG,
         {}},
        {[&] { return ZoProtector_AddFileProtectByFolder(tooLong.c_str(), 0, nullptr); }, ZOP_E_INVALID_ARG, {}},
        {[&] { return ZoProtector_AddFileIgnoreProcess(tooLong.c_str(), 0, 0); }, ZOP_E_INVALID_ARG, {}},
        {[] { return ZoProtector_AddDllWhitelistFolder(L"q:\\", 1); }, ZOP_E_FAILED, {noDrive}},
    };
    const auto requests = RequestsOf([&] {
        int index = 0;
        for (const auto& row : cases) {
            EXPECT_EQ(row.call(), row.status) << index;
            EXPECT_EQ(Log(), row.lines) << index;
            ++index;
        }
    });
    EXPECT_TRUE(requests.empty());
}

}  // namespace
}  // namespace sdktest
