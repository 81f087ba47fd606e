#include <array>

#include "driver_set_up.h"
#include "rows.h"
#include "temp_folder.h"

namespace {

using zotest::Install;
using zotest::InstalledDriverPath;
using zotest::kInstanceKey;
using zotest::kServiceKey;
using zotest::NumberValue;
using zotest::ReadFileBytes;
using zotest::ReadValue;
using zotest::TextValue;
using zotest::WriteFileBytes;

class InstallDriver : public zotest::BareSystemTest {
  protected:
    static void ExpectConfig(DWORD startType) {
        alignas(QUERY_SERVICE_CONFIGW) BYTE block[4096];
        DWORD needed = 0;
        auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block);
        ASSERT_TRUE(QueryServiceConfigW(zotest::OpenService().Get(), config, sizeof(block), &needed));
        wchar_t imagePath[MAX_PATH] = {};
        ExpandEnvironmentStringsW(L"%SystemRoot%\\System32\\drivers\\ZoProtectorDriver.sys", imagePath, MAX_PATH);
        EXPECT_EQ(config->dwServiceType, DWORD{SERVICE_FILE_SYSTEM_DRIVER});
        EXPECT_EQ(config->dwStartType, startType);
        EXPECT_EQ(config->dwErrorControl, DWORD{SERVICE_ERROR_NORMAL});
        EXPECT_STREQ(config->lpBinaryPathName, imagePath);
        EXPECT_STREQ(config->lpLoadOrderGroup, L"FSFilter Activity Monitor");
        EXPECT_STREQ(config->lpDisplayName, L"ZoProtector Driver");
    }

    const zotest::TempFolder folder_;
    const std::wstring source_ = (folder_ / L"driver.sys").wstring();
};

TEST_F(InstallDriver, WritesServiceAndInstance) {
    const zotest::Rows<uint32_t, const wchar_t*, uint32_t, DWORD, const wchar_t*> rows = {
        {"first installation", 3, nullptr, 0, 3, L"385100"},
        {"empty altitude", 0, L"", 1, 0, L"385100"},
        {"altitude that is not a number", 4, L"no number \x00E9", 256, 4, L"no number \x00E9"},
        {"unknown start type", 7, L"385101.5", 0, 3, L"385101.5"},
    };
    for (const auto& [name, startType, altitude, allowUnload, expectedStart, expectedAltitude] :
         rows) {  // each one over the one before
        SCOPED_TRACE(name);
        ASSERT_EQ(ZoProtector_InstallDriver(nullptr, startType, altitude, allowUnload), ZOP_OK);
        ExpectConfig(expectedStart);
        EXPECT_EQ(ReadValue(kServiceKey + L"\\Instances", L"DefaultInstance"), TextValue(L"ZoProtector Instance"));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), TextValue(expectedAltitude));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Flags"), NumberValue(0));
        EXPECT_EQ(ReadValue(kServiceKey, L"AllowUnload"), NumberValue(allowUnload != 0));
    }
}

TEST_F(InstallDriver, CopiesTheFileBesideTheExecutableByDefault) {
    ASSERT_EQ(Install(), ZOP_OK);
    EXPECT_TRUE(ReadFileBytes(InstalledDriverPath()) == ReadFileBytes(zotest::SimulatorFile()));
}

TEST_F(InstallDriver, ReplacesAFileOfAnotherSize) {
    WriteFileBytes(source_, "new");
    WriteFileBytes(InstalledDriverPath(), "older");
    EXPECT_EQ(Install(source_.c_str()), ZOP_OK);
    EXPECT_EQ(ReadFileBytes(InstalledDriverPath()), "new");
}

TEST_F(InstallDriver, KeepsAFileOfTheSameSize) {
    WriteFileBytes(source_, "new");
    WriteFileBytes(InstalledDriverPath(), "old");
    EXPECT_EQ(Install(source_.c_str()), ZOP_OK);
    EXPECT_EQ(ReadFileBytes(InstalledDriverPath()), "old");
}

// A driver file from an installation disc.
TEST_F(InstallDriver, ClearsTheReadOnlyAttributeOfTheCopy) {
    WriteFileBytes(source_, "read only");
    SetFileAttributesW(source_.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(Install(source_.c_str()), ZOP_OK);
    EXPECT_EQ(GetFileAttributesW(InstalledDriverPath().c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_NE(GetFileAttributesW(source_.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(InstallDriver, InstallsNothingWhenTheFileCannotBeCopied) {
    constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    const std::wstring longest = L"C:\\" + std::wstring(252, L'x') + L".sys";  // 259 characters
    wchar_t root[MAX_PATH] = {};
    GetEnvironmentVariableW(L"SystemRoot", root, MAX_PATH);
    const zotest::Rows<std::wstring, std::wstring, int32_t> rows = {
        {"source path too long", longest + L"x", root, ZOP_E_INVALID_ARG},
        {"longest source path, no such file", longest, root, ZOP_E_DRIVER_NOT_FOUND},
        {"source is a folder", L"C:\\", root, ZOP_E_ACCESS_DENIED},
        {"no SystemRoot", L"", L"", ZOP_STATUS_FROM_WIN32(ERROR_ENVVAR_NOT_FOUND)},
        {"installed path too long", L"", std::wstring(240, L'r'), kDoesNotFit},
        {"SystemRoot too long", L"", std::wstring(300, L'r'), kDoesNotFit},
        {"no such Windows folder", L"", L"C:\\no such folder", ZOP_E_DRIVER_NOT_FOUND},
        {"installed file in use", L"", root, ZOP_STATUS_FROM_WIN32(ERROR_SHARING_VIOLATION)},
    };
    WriteFileBytes(InstalledDriverPath(), "in use");
    const zo::OwnedFile inUse = zotest::Hold(InstalledDriverPath(), FILE_SHARE_READ);
    for (const auto& [name, source, systemRoot, expected] : rows) {
        const zotest::ScopedEnvironment scoped(L"SystemRoot", systemRoot);
        EXPECT_EQ(Install(source.c_str()), expected) << name;
    }
    EXPECT_EQ(zotest::DriverStatus().state, ZOP_DRIVER_NOT_INSTALLED);
}

class UninstallDriver : public zotest::BareSystemTest {
  protected:
    void SetUp() override {
        BareSystemTest::SetUp();
        WriteFileBytes(InstalledDriverPath(), "left behind");
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str(), L"Altitude", REG_SZ, L"1", 4);
    }
    void TearDown() override {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey.c_str());
        BareSystemTest::TearDown();
    }
};

TEST_F(UninstallDriver, RemovesLeftoversWithoutAService) {
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), "");
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
}

TEST_F(UninstallDriver, SucceedsWhenTheFileIsInUse) {
    const zo::OwnedFile inUse = zotest::Hold(InstalledDriverPath(), FILE_SHARE_READ);
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_TRUE(std::filesystem::exists(InstalledDriverPath()));
}

}  // namespace
