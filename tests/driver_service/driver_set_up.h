#pragma once

// Driver files of any version and service entries of any kind, for the tests of installing, controlling and upgrading.

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "installed_driver.h"
#include "loaded_library.h"
#include "owned_handles.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace zotest {

inline std::filesystem::path SimulatorFile() {
    return ProgramFolder() / L"ZoProtectorDriver.sys";
}

// Where the fixed part of the version resource begins in a driver file: behind its signature, 0xFEEF04BD.
inline std::size_t FixedVersionOffset(const std::string& driver) {
    const std::size_t offset = driver.find("\xBD\x04\xEF\xFE");
    EXPECT_NE(offset, std::string::npos) << "the simulator driver has no version resource";
    return offset;
}

// The simulator driver with other version numbers in its resource.
inline std::string DriverOfVersion(std::array<std::uint16_t, 4> version) {
    std::string driver = ReadFileBytes(SimulatorFile());
    const std::uint16_t words[] = {version[1], version[0], version[3], version[2]};  // low half first
    driver.replace(FixedVersionOffset(driver) + 8, sizeof(words), reinterpret_cast<const char*>(words), sizeof(words));
    return driver;
}

inline ZoProtectorDriverStatus DriverStatus() {
    ZoProtectorDriverStatus status;
    memset(&status, 0xCC, sizeof(status));
    EXPECT_EQ(ZoProtector_QueryDriverStatus(&status), ZOP_OK);
    return status;
}

inline zo::OwnedService OpenService(DWORD access = SERVICE_ALL_ACCESS) {
    const zo::OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return zo::OwnedService(OpenServiceW(manager.Get(), kServiceName, access));
}

inline void SetImagePath(const std::wstring& path) {
    ASSERT_TRUE(ChangeServiceConfigW(OpenService().Get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                     path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
}

// An environment variable of this process, until the end of its life.
class ScopedVariable {
  public:
    ScopedVariable(const wchar_t* name, const wchar_t* value) : name_(name) {
        wchar_t old[MAX_PATH] = {};
        GetEnvironmentVariableW(name, old, MAX_PATH);
        old_ = old;
        SetEnvironmentVariableW(name, value);
    }
    ~ScopedVariable() { SetEnvironmentVariableW(name_, old_.c_str()); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

  private:
    const wchar_t* name_;
    std::wstring old_;
};

// Nothing of a driver before a test and after it.
class BareSystemTest : public testing::Test {
  protected:
    void SetUp() override { RemoveDriverService(); }
    void TearDown() override {
        ZoProtector_Uninitialize();
        RemoveDriverService();
    }
};

}  // namespace zotest
