#pragma once

// The simulator driver as a running service called "ZoProtector", made with the service manager's own functions and
// without the library, so that tests of the SDK do not stand on the driver service code. Steps that fail raise
// std::runtime_error with the step and the Win32 error.

#include <gtest/gtest.h>

#include <string>

#include "owned_handles.h"
#include "simulator_client.h"

namespace zotest {

using zosim::FieldText;
using zosim::IoResult;
using zosim::OpenDriver;
using zosim::RecordOf;
using zosim::SendControl;
using zosim::SetField;
using zosim::SimulatorClient;

// C:\x as the driver gets it: \Device\HarddiskVolume1\x.
[[nodiscard]] std::wstring NtPath(const std::wstring& path);

inline constexpr wchar_t kServiceName[] = L"ZoProtector";

// With all rights; empty when there is no service.
[[nodiscard]] zo::OwnedService OpenDriverService();

// System32\drivers\ZoProtectorDriver.sys
[[nodiscard]] std::wstring InstalledDriverPath();

// Stops and deletes the service whatever state it is in and removes the driver file. Good before and after a test that
// installs by itself. Nothing there is fine.
void RemoveDriverService();

// Copies a driver file from the program's folder to system32\drivers, registers it as a file system driver started on
// demand, and starts it; takes all of it away at the end of its life. What an earlier test left is removed first.
class InstalledDriver {
  public:
    explicit InstalledDriver(const std::wstring& fileName = L"ZoProtectorDriver.sys");
    ~InstalledDriver() { RemoveDriverService(); }
    InstalledDriver(const InstalledDriver&) = delete;
    InstalledDriver& operator=(const InstalledDriver&) = delete;

    // Stopping while handles are open is what happens when a driver vanishes: the handles stay and fail.
    void Stop();
    void Start();
};

// A suite of tests that need the driver (TEST_F): it is started once for the suite and reset before each test.
class DriverTest : public testing::Test {
  protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override { simulator_.Reset(); }

    [[nodiscard]] const SimulatorClient& Simulator() const noexcept { return simulator_; }

  private:
    SimulatorClient simulator_;
};

}  // namespace zotest
