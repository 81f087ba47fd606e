#include <array>

#include "driver_set_up.h"
#include "import_hook.h"
#include "rows.h"

namespace {

using zotest::DriverStatus;
using zotest::InstalledDriverPath;
using zotest::kInstanceKey;
using zotest::TextValue;
using zotest::WriteFileBytes;

class StatusWithoutService : public zotest::BareSystemTest {};

TEST_F(StatusWithoutService, IsNotInstalledAndOtherwiseEmpty) {
    const ZoProtectorDriverStatus status = DriverStatus();
    ZoProtectorDriverStatus expected{};
    expected.startType = ZOP_START_DEMAND;
    EXPECT_EQ(memcmp(&status, &expected, sizeof(status)), 0);
}

TEST_F(StatusWithoutService, NeedsARecord) {
    EXPECT_EQ(ZoProtector_QueryDriverStatus(nullptr), ZOP_E_INVALID_ARG);
}

class DriverFile : public zotest::InstalledDriverTest {};

TEST_F(DriverFile, AltitudeIsShownWhenItIsTextAndFits) {
    const std::wstring longest(63, L'9');
    const zotest::Rows<std::string, std::wstring> rows = {
        {"longest", TextValue(longest), longest},
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

using Version = std::array<uint32_t, 4>;

int32_t ReadVersion(Version& version) {
    version = {5, 5, 5, 5};
    return ZoProtector_GetDriverFileVersion(&version[0], &version[1], &version[2], &version[3]);
}

TEST_F(DriverFile, PathIsShownAsStoredAndResolvedForTheVersion) {
    WriteFileBytes(InstalledDriverPath(), zotest::DriverOfVersion({7, 8, 9, 65535}));
    constexpr Version kExpected = {7, 8, 9, 65535};
    for (const auto& stored : zotest::StoredImagePaths()) {
        SCOPED_TRACE(stored.name);
        zotest::SetImagePath(stored.text);
        const ZoProtectorDriverStatus status = DriverStatus();
        EXPECT_EQ(status.imagePath, stored.text);
        EXPECT_EQ(memcmp(&status.fileVersionMajor, kExpected.data(), sizeof(kExpected)), 0);
        Version version;
        EXPECT_EQ(ReadVersion(version), ZOP_OK);
        EXPECT_EQ(version, kExpected);
    }
}

TEST_F(DriverFile, PathIsCutInTheStatusWhenTooLong) {
    zotest::SetImagePath(std::wstring(600, L'p'));
    EXPECT_EQ(DriverStatus().imagePath, std::wstring(519, L'p'));
    Version version;
    EXPECT_EQ(ReadVersion(version), ZOP_E_DRIVER_NOT_FOUND);
}

TEST_F(DriverFile, PathMayHave259Characters) {
    const zotest::TempFolder folder;
    const std::wstring file = (folder / std::wstring(252 - folder.Path().wstring().size(), L'd') / L"d.sys").wstring();
    ASSERT_EQ(file.size(), 259u);
    WriteFileBytes(file, zotest::DriverOfVersion({7, 8, 9, 10}));
    zotest::SetImagePath(file);
    Version version;
    EXPECT_EQ(ReadVersion(version), ZOP_OK);
    EXPECT_EQ(version, (Version{7, 8, 9, 10}));
}

TEST_F(DriverFile, WithoutAVersionIsAnError) {
    const zotest::TempFolder folder;
    const std::wstring file = (folder / L"other.sys").wstring();
    zotest::SetImagePath(file);
    std::string cutBlock = zotest::DriverOfVersion({1, 2, 3, 4});
    cutBlock[zotest::FixedVersionOffset(cutBlock) - 38] = 51;  // the length that the root block claims
    const zotest::Rows<std::string, bool> rows = {
        {"no file", "", false}, {"root block one byte short", cutBlock, false}, {"no resource", "MZ", true}};
    for (const auto& [name, bytes, isNoVersion] : rows) {
        SCOPED_TRACE(name);
        if (!bytes.empty()) WriteFileBytes(file, bytes);
        Version version;
        const int32_t status = ReadVersion(version);
        EXPECT_TRUE(isNoVersion ? zotest::IsNoVersion(status) : status == ZOP_E_DRIVER_NOT_FOUND) << status;
        EXPECT_EQ(version, Version{});
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

// The size query fails without an error of its own. What an earlier call left as the last error must not show.
DWORD WINAPI FindNoVersionSilently(const wchar_t*, DWORD*) {
    return 0;
}

TEST_F(DriverFile, VersionIsZeroWhenItsSizeIsZeroWithoutAnError) {
    const zotest::ImportHook hook("GetFileVersionInfoSizeW", FindNoVersionSilently);
    Version version;
    EXPECT_EQ(ReadVersion(version), ZOP_OK);
    EXPECT_EQ(version, Version{});
}

// The service manager refuses the configuration and names no size.
BOOL WINAPI RefuseConfig(SC_HANDLE, QUERY_SERVICE_CONFIGW*, DWORD, DWORD*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

TEST_F(DriverFile, IsTheOneBesideTheExecutableWhenTheConfigurationCannotBeRead) {
    WriteFileBytes(InstalledDriverPath(), zotest::DriverOfVersion({7, 8, 9, 10}));
    const zotest::ImportHook hook("QueryServiceConfigW", RefuseConfig);
    Version version;
    EXPECT_EQ(ReadVersion(version), ZOP_OK);
    EXPECT_EQ(version[0], 1u);
    EXPECT_STREQ(DriverStatus().imagePath, L"");
}

}  // namespace
