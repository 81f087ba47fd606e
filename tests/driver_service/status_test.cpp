#include <array>
#include <cwchar>

#include "driver_set_up.h"

namespace zotest {
namespace {

// The status of reading the version, and the version.
using VersionResult = std::array<uint32_t, 5>;

VersionResult ReadVersion() {
    uint32_t v[] = {5, 5, 5, 5};
    const int32_t status = ZoProtector_GetDriverFileVersion(&v[0], &v[1], &v[2], &v[3]);
    return {zo::Bits(status), v[0], v[1], v[2], v[3]};
}

class StatusWithoutService : public BareSystemTest {};

TEST_F(StatusWithoutService, IsNotInstalledAndOtherwiseEmpty) {
    const ZoProtectorDriverStatus status = DriverStatus();
    ZoProtectorDriverStatus expected{};
    expected.startType = ZOP_START_DEMAND;
    EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0);
    EXPECT_EQ(ZoProtector_QueryDriverStatus(nullptr), ZOP_E_INVALID_ARG);
    EXPECT_EQ(ReadVersion(), (VersionResult{ZOP_OK, 1})) << "of the file beside the executable";
}

class DriverFile : public InstalledDriverTest {};

TEST_F(DriverFile, AltitudeIsShownWhenItIsTextAndFits) {
    const std::wstring longest(63, L'9');
    const Rows<std::string, std::wstring> rows = {
        {"longest", TextValue(longest), longest},
        {"shortest", TextValue(L"9"), L"9"},
        {"one character too long", TextValue(longest + L"9"), L""},
        {"cut, without a terminator", TextValue(longest + L"9").substr(0, 129), longest},
        {"empty", TextValue(L""), L""},
        {"expandable text", char{REG_EXPAND_SZ} + TextValue(L"385100").substr(1), L""},
    };
    for (const auto& [name, value, expected] : rows) {
        SCOPED_TRACE(name);
        // Where a zero follows text that is not terminated, the platform counts it in; something else must follow here.
        const std::string followed = value.substr(1) + "after";
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str(), L"Altitude", static_cast<DWORD>(value[0]),
                        followed.data(), static_cast<DWORD>(value.size() - 1));
        EXPECT_EQ(DriverStatus().altitude, expected);
        EXPECT_EQ(DriverStatus().instanceRegistered, expected.empty() ? 0u : 1u);
    }
    ASSERT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kInstanceKey.c_str()), ERROR_SUCCESS);
    EXPECT_EQ(DriverStatus().instanceRegistered, 0u);
}

TEST_F(DriverFile, PathIsShownAsStoredAndResolvedForTheVersion) {
    WriteFileBytes(InstalledDriverPath(), DriverOfVersion({7, 8, 9, 65535}));
    constexpr VersionResult kExpected = {ZOP_OK, 7, 8, 9, 65535};
    for (const auto& [name, path] : StoredImagePaths()) {
        SCOPED_TRACE(name);
        SetImagePath(path);
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.imagePath, path);
        EXPECT_EQ(memcmp(&status.fileVersionMajor, &kExpected[1], 4 * sizeof(uint32_t)), 0);
        EXPECT_EQ(ReadVersion(), kExpected);
    }
}

TEST_F(DriverFile, PathFromTheRootOfADriveStaysAsItIs) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(ProgramFolder());
    for (const std::wstring& path : {SimulatorFile().wstring(), SimulatorFile().generic_wstring()}) {
        SetImagePath(path.substr(2));
        EXPECT_EQ(ReadVersion(), (VersionResult{ZOP_OK, 1}));
    }
    std::filesystem::current_path(before);
}

TEST_F(DriverFile, PathIsCutInTheStatusWhenTooLong) {
    SetImagePath(std::wstring(600, L'p'));
    EXPECT_EQ(DriverStatus().imagePath, std::wstring(519, L'p'));
    EXPECT_EQ(ReadVersion(), (VersionResult{zo::Bits(ZOP_E_DRIVER_NOT_FOUND)}));
}

TEST_F(DriverFile, PathMayHave259Characters) {
    const TempFolder folder;
    const std::wstring file = (folder / std::wstring(252 - folder.Path().wstring().size(), L'd') / L"d.sys").wstring();
    ASSERT_EQ(file.size(), 259u);
    WriteFileBytes(file, DriverOfVersion({7, 8, 9, 10}));
    SetImagePath(file);
    EXPECT_EQ(ReadVersion(), (VersionResult{ZOP_OK, 7, 8, 9, 10}));
}

TEST_F(DriverFile, WithoutAVersionIsAnError) {
    const TempFolder folder;
    const std::wstring file = (folder / L"other.sys").wstring();
    SetImagePath(file);
    std::string cutBlock = DriverOfVersion({1, 2, 3, 4});
    cutBlock[FixedVersionOffset(cutBlock) - 38] = 51;  // the length that the root block claims
    const Rows<std::string, bool> rows = {
        {"no file", "", false}, {"root block one byte short", cutBlock, false}, {"no resource", "MZ", true}};
    for (const auto& [name, bytes, isNoVersion] : rows) {
        SCOPED_TRACE(name);
        if (!bytes.empty()) WriteFileBytes(file, bytes);
        const VersionResult result = ReadVersion();
        const auto status = static_cast<int32_t>(result[0]);
        EXPECT_TRUE(isNoVersion ? IsNoVersion(status) : status == ZOP_E_DRIVER_NOT_FOUND) << status;
        EXPECT_EQ(result, VersionResult{result[0]});
        EXPECT_EQ(DriverStatus().fileVersionMajor, 0u);
    }
}

TEST_F(DriverFile, VersionNeedsAllFourPointers) {
    for (int missing = 0; missing < 4; ++missing) {
        uint32_t number = 5;
        uint32_t* out[4] = {&number, &number, &number, &number};
        out[missing] = nullptr;
        EXPECT_EQ(ZoProtector_GetDriverFileVersion(out[0], out[1], out[2], out[3]), ZOP_E_INVALID_ARG);
        EXPECT_EQ(number, 5u);
    }
}

// What an earlier call left as the last error must not show.
TEST_F(DriverFile, VersionIsZeroWhenItsSizeIsZeroWithoutAnError) {
    const ImportHook hook("GetFileVersionInfoSizeW", +[] { return DWORD{0}; });
    EXPECT_EQ(ReadVersion(), VersionResult{ZOP_OK});
}

TEST_F(DriverFile, IsTheOneBesideTheExecutableWhenTheWindowsFolderCannotBeNamed) {
    SetImagePath(L"System32\\drivers\\ZoProtectorDriver.sys");
    for (const UINT length : {0u, UINT{MAX_PATH}}) {
        const ImportHook hook("GetSystemWindowsDirectoryW", GetSystemWindowsDirectoryW, [&](wchar_t* folder, UINT) {
            std::wcscpy(folder, L"C:\\cut");
            return length;
        });
        EXPECT_EQ(ReadVersion(), (VersionResult{ZOP_OK, 1}));
    }
}

TEST_F(DriverFile, IsTheOneBesideTheExecutableWhenTheConfigurationCannotBeRead) {
    WriteFileBytes(InstalledDriverPath(), DriverOfVersion({7, 8, 9, 10}));
    // The service manager refuses the configuration and names no size.
    const ImportHook hook("QueryServiceConfigW", FailWith<ERROR_ACCESS_DENIED>);
    EXPECT_EQ(ReadVersion(), (VersionResult{ZOP_OK, 1}));
    EXPECT_STREQ(DriverStatus().imagePath, L"");
}

}  // namespace
}  // namespace zotest
