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
    const std::wstring c = zotest::NtPath(L"C:");
    const std::wstring here = std::filesystem::current_path().wstring();
    const std::wstring drive = zotest::NtPath(here.substr(0, 2));
    const std::wstring longest = L"C:\\" + std::wstring(256, L'p');  // 259 characters

    const struct {
        std::wstring path, sent;
    } cases[] = {
        {L"C:\\Suite\\a.exe", c + L"\\Suite\\a.exe"},
        {L"c:\\data\\..\\temp\\a.exe", c + L"\\temp\\a.exe"},
        {L"C:\\", c + L"\\"},
        {L"C:\\folder\\", c + L"\\folder\\"},
        {L"tool.exe", drive + here.substr(2) + L"\\tool.exe"},
        {L"\\root.exe", drive + L"\\root.exe"},
        {L"\\\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
        {L"\\\\?\\C:\\x.exe", L"\\\\?\\C:\\x.exe"},
        {longest, c + longest.substr(2)},
        {longest + L"p", kInvalid},
        {L" ", kInvalid},
        {std::wstring(40000, L'p'), kInvalid},
        {L"Q:\\x", kFailed},
    };
    for (const auto& row : cases)
        EXPECT_EQ(Sent(&ZoProtector_AddFileProtectByPath, row.path), zo::Utf8FromWide(row.sent));
}

TEST_F(Names, OfKeys) {
    // The user's key is the one below HKEY_USERS in which a key of our own appears.
    HKEY marker = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, L"zotest", &marker), ERROR_SUCCESS);
    const zo::OwnedRegistryKey owner(marker);
    const std::wstring sent =
        zo::WideFromUtf8(Sent(&ZoProtector_AddRegistryProtectByKey, L"HKEY_CURRENT_USER\\zotest", 0u));
    const std::wstring userKey = sent.substr(0, sent.rfind(L'\\'));
    HKEY found = nullptr;
    EXPECT_EQ(RegOpenKeyW(HKEY_USERS, sent.c_str() + 15, &found), ERROR_SUCCESS) << "behind \\REGISTRY\\USER\\";
    zo::OwnedRegistryKey(found).Reset();
    RegDeleteKeyW(HKEY_CURRENT_USER, L"zotest");
    const std::wstring machine = L"\\REGISTRY\\MACHINE\\";
    const struct {
        std::wstring key, sent;
    } cases[] = {
        {L"hkey_Local_machine\\Software\\x", machine + L"Software\\x"},
        {L"hklm\\software\\X", machine + L"software\\X"},
        {L"HKLM\\", machine},
        {L"HKLM\\\\x", machine + L"\\x"},
        {L"HKEY_CLASSES_ROOT\\.x", machine + L"SOFTWARE\\Classes\\.x"},
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
    for (const auto& row : cases)
        EXPECT_EQ(Sent(&ZoProtector_AddRegistryProtectByKey, row.key, 0u), zo::Utf8FromWide(row.sent));
}

}  // namespace
}  // namespace sdktest
