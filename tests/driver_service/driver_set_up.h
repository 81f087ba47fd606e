#pragma once

// Driver files of any version and a system without the driver's service, for the tests of installing, controlling and
// upgrading.

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "import_hook.h"
#include "installed_driver.h"
#include "loaded_library.h"
#include "rows.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace zotest {

inline std::filesystem::path SimulatorFile() {
    return ProgramFolder() / L"ZoProtectorDriver.sys";
}

// Where the fixed part of the version resource begins in a driver file: behind its signature, 0xFEEF04BD.
inline std::size_t FixedVersionOffset(const std::string& driver) {
    return driver.find("\xBD\x04\xEF\xFE");
}

// The simulator driver with other version numbers in its resource.
inline std::string DriverOfVersion(std::array<std::uint16_t, 4> version) {
    std::string driver = ReadFileBytes(SimulatorFile());
    const std::uint16_t words[] = {version[1], version[0], version[3], version[2]};  // low half first
    driver.replace(FixedVersionOffset(driver) + 8, sizeof(words), reinterpret_cast<const char*>(words), sizeof(words));
    return driver;
}

// What reading the version of a file without a version resource gives, which is not the same under Wine.
inline bool IsNoVersion(int32_t status) {
    return status == ZOP_STATUS_FROM_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND) ||
           status == ZOP_STATUS_FROM_WIN32(ERROR_RESOURCE_TYPE_NOT_FOUND);
}

inline ZoProtectorDriverStatus DriverStatus() {
    ZoProtectorDriverStatus status;
    memset(&status, 0xCC, sizeof(status));
    EXPECT_EQ(ZoProtector_QueryDriverStatus(&status), ZOP_OK);
    return status;
}

inline void SetImagePath(const std::wstring& path) {
    ASSERT_TRUE(ChangeServiceConfigW(OpenDriverService().Get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                     path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
}

// The installed driver file as installers and the system store it, with a name for each form.
inline std::vector<std::pair<const char*, std::wstring>> StoredImagePaths() {
    const std::wstring installed = InstalledDriverPath();
    return {{"Win32 path", installed},
            {"kernel prefix", L"\\??\\" + installed},
            {"long-path prefix", L"\\\\?\\" + installed},
            {"SystemRoot", L"\\SystemRoot\\System32\\drivers\\ZoProtectorDriver.sys"},
            {"SystemRoot in other case", L"\\systemROOT\\System32\\drivers\\ZoProtectorDriver.sys"},
            {"relative to the Windows folder", L"System32\\drivers\\ZoProtectorDriver.sys"}};
}

const std::wstring kServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector";
const std::wstring kInstanceKey = kServiceKey + L"\\Instances\\ZoProtector Instance";

inline int32_t Install(const wchar_t* source = nullptr) {
    return ZoProtector_InstallDriver(source, ZOP_START_DEMAND, nullptr, 0);
}

// A registry value as one character for its type, followed by its bytes; empty when there is none.
inline std::string ReadValue(const std::wstring& key, const wchar_t* name) {
    char bytes[512];
    DWORD type = REG_NONE;
    DWORD size = sizeof(bytes);
    const LSTATUS error = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_ANY, &type, bytes, &size);
    return error == ERROR_SUCCESS ? static_cast<char>(type) + std::string(bytes, size) : std::string();
}
inline std::string TextValue(const std::wstring& text) {
    return char{REG_SZ} + std::string(reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * 2);
}
inline std::string NumberValue(char number) {
    return {REG_DWORD, number, 0, 0, 0};
}

// No driver before a test and after it.
class BareSystemTest : public testing::Test {
  protected:
    void SetUp() override { RemoveDriverService(); }
    void TearDown() override {
        ZoProtector_Uninitialize();
        RemoveDriverService();
    }
};

class InstalledDriverTest : public BareSystemTest {
  protected:
    void SetUp() override {
        BareSystemTest::SetUp();
        ASSERT_EQ(Install(), ZOP_OK);
    }
};

}  // namespace zotest
