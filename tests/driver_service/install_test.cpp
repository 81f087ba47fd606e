#include "driver_set_up.h"

namespace zotest {
namespace {

class InstallDriver : public BareSystemTest {
  protected:
    static void ExpectConfig(DWORD startType) {
        EXPECT_EQ(ReadValue(kServiceKey, L"Type"), NumberValue(SERVICE_FILE_SYSTEM_DRIVER));
        EXPECT_EQ(ReadValue(kServiceKey, L"Start"), NumberValue(static_cast<char>(startType)));
        EXPECT_EQ(ReadValue(kServiceKey, L"ErrorControl"), NumberValue(SERVICE_ERROR_NORMAL));
        EXPECT_EQ(ReadValue(kServiceKey, L"Group"), TextValue(L"FSFilter Activity Monitor"));
        EXPECT_EQ(ReadValue(kServiceKey, L"DisplayName"), TextValue(L"ZoProtector Driver"));
        EXPECT_EQ(DriverStatus().imagePath,
                  (std::filesystem::path(Environment("SystemRoot")) / L"System32\\drivers\\ZoProtectorDriver.sys"));
    }

    const TempFolder folder_;
    const std::wstring source_ = (folder_ / L"driver.sys").wstring();
};

TEST_F(InstallDriver, WritesServiceAndInstance) {
    // Each row over the one before.
    const Rows<uint32_t, const wchar_t*, uint32_t, DWORD, const wchar_t*> rows = {
        {"first installation", 3, nullptr, 0, 3, L"385100"},
        {"empty altitude", 0, L"", 1, 0, L"385100"},
        {"altitude that is not a number", 4, L"no number \x00E9", 256, 4, L"no number \x00E9"},
        {"unknown start type", 7, L"385101.5", 0, 3, L"385101.5"},
    };
    for (const auto& [name, startType, altitude, allowUnload, expectedStart, expectedAltitude] : rows) {
        SCOPED_TRACE(name);
        ASSERT_EQ(ZoProtector_InstallDriver(nullptr, startType, altitude, allowUnload), ZOP_OK);
        ExpectConfig(expectedStart);
        EXPECT_EQ(ReadValue(kServiceKey + L"\\Instances", L"DefaultInstance"), TextValue(L"ZoProtector Instance"));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), TextValue(expectedAltitude));
        EXPECT_EQ(ReadValue(kInstanceKey, L"Flags"), NumberValue(0));
        EXPECT_EQ(ReadValue(kServiceKey, L"AllowUnload"), NumberValue(allowUnload != 0));
    }
}

TEST_F(InstallDriver, ReplacesAnInstalledFileOfAnotherSizeOnly) {
    WriteFileBytes(source_, "new");
    const std::string beside = ReadFileBytes(SimulatorFile());
    const Rows<const char*, std::wstring, std::string> rows = {
        {"same size", "old", source_, "old"},
        {"another size", "older", source_, "new"},
        {"the file beside the executable by default", "older", L"", beside},
    };
    for (const auto& [name, installed, source, expected] : rows) {
        WriteFileBytes(InstalledDriverPath(), installed);
        EXPECT_EQ(Install(source.c_str()), ZOP_OK);
        EXPECT_TRUE(ReadFileBytes(InstalledDriverPath()) == expected) << name;
    }
}

// A driver file from an installation disc.
TEST_F(InstallDriver, ClearsTheReadOnlyAttributeOfTheCopy) {
    WriteFileBytes(source_, "read only");
    SetFileAttributesW(source_.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(Install(source_.c_str()), ZOP_OK);
    EXPECT_EQ(GetFileAttributesW(InstalledDriverPath().c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_NE(GetFileAttributesW(source_.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(InstallDriver, FindsNoFileByDefaultWhenItsOwnPathIsMissingOrCut) {
    for (const DWORD length : {DWORD{0}, DWORD{MAX_PATH}}) {
        const ImportHook hook("GetModuleFileNameW", GetModuleFileNameW, [&](HMODULE, wchar_t* path, DWORD units) {
            SetLastError(ERROR_ACCESS_DENIED);
            std::wstring(units - 1, L'x').copy(path, units);
            return length;
        });
        EXPECT_EQ(Install(), length == 0 ? ZOP_E_ACCESS_DENIED : ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER));
    }
}

TEST_F(InstallDriver, InstallsNothingWhenTheFileCannotBeCopied) {
    constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    const std::wstring longest = L"C:\\" + std::wstring(252, L'x') + L".sys";  // 259 characters
    wchar_t root[MAX_PATH] = {};
    GetEnvironmentVariableW(L"SystemRoot", root, MAX_PATH);
    const Rows<std::wstring, std::wstring, int32_t> rows = {
        {"source path too long", longest + L"x", root, ZOP_E_INVALID_ARG},
        {"longest source path, no such file", longest, root, ZOP_E_DRIVER_NOT_FOUND},
        {"source is a folder", L"C:\\", root, ZOP_E_ACCESS_DENIED},
        {"no SystemRoot", L"", L"", ZOP_STATUS_FROM_WIN32(ERROR_ENVVAR_NOT_FOUND)},
        {"installed path one character too long", L"", std::wstring(221, L'r'), kDoesNotFit},
        {"SystemRoot too long", L"", std::wstring(300, L'r'), kDoesNotFit},
        {"no such Windows folder", L"", L"C:\\no such folder", ZOP_E_DRIVER_NOT_FOUND},
        {"installed file in use", L"", root, ZOP_STATUS_FROM_WIN32(ERROR_SHARING_VIOLATION)},
    };
    WriteFileBytes(InstalledDriverPath(), "in use");
    const zo::OwnedFile inUse = Hold(InstalledDriverPath(), FILE_SHARE_READ);
    for (const auto& [name, source, systemRoot, expected] : rows) {
        const ScopedEnvironment scoped(L"SystemRoot", systemRoot);
        EXPECT_EQ(Install(source.c_str()), expected) << name;
    }
    EXPECT_EQ(DriverStatus().state, ZOP_DRIVER_NOT_INSTALLED);
}

class UninstallDriver : public BareSystemTest {};

TEST_F(UninstallDriver, RemovesLeftoversWithoutAServiceButForAFileInUse) {
    WriteFileBytes(InstalledDriverPath(), "left behind");
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str(), L"Altitude", REG_SZ, L"1", 4);
    zo::OwnedFile inUse = Hold(InstalledDriverPath(), FILE_SHARE_READ);
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_EQ(ReadValue(kInstanceKey, L"Altitude"), "");
    EXPECT_TRUE(std::filesystem::exists(InstalledDriverPath()));
    inUse.Reset();
    EXPECT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_FALSE(std::filesystem::exists(InstalledDriverPath()));
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey.c_str());
}

TEST_F(UninstallDriver, FailsWhenInstancesThatAreThereCannotBeRemoved) {
    for (const LSTATUS error : {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_KEY_DELETED, ERROR_ACCESS_DENIED}) {
        const ImportHook hook("RegOpenKeyExW", RegOpenKeyExW, [&](HKEY, auto, DWORD options, REGSAM access, HKEY*) {
            EXPECT_EQ(options, 0u);
            EXPECT_EQ(access, 0x2001Fu);
            return error;
        });
        const bool isDenied = error == ERROR_ACCESS_DENIED;
        EXPECT_EQ(ZoProtector_UninstallDriver(), isDenied ? ZOP_E_ACCESS_DENIED : ZOP_OK) << error;
    }
}

}  // namespace
}  // namespace zotest
