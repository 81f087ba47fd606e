#pragma once

// The library with the simulator driver behind it, and a diagnostic log that belongs to the test program alone.

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "driver_records.h"
#include "format.h"
#include "installed_driver.h"
#include "log_reader.h"
#include "temp_folder.h"
#include "text.h"
#include "zoprotector.h"

namespace sdktest {

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

// The library takes the temporary folder once for the life of the process, so it is set before the first test. One
// object of this type stands in each program.
class OwnTemporaryFolder : public testing::Environment {
  public:
    void TearDown() override {
        // Whatever the tests left open would keep the log file from being deleted.
        ZoProtector_Uninitialize();
    }

  private:
    zotest::TempFolder folder_;
    zotest::ScopedTmp tmp_{folder_.Path().wstring()};
};

// What follows time and level: "[....][INFO ] " is 33 characters.
[[nodiscard]] inline std::string LevelAndMessage(const std::string& line) {
    return line.size() < 33 ? line : line.substr(25);
}

[[nodiscard]] inline Lines NewLines(zotest::LogTail& log) {
    Lines lines = log.Next();
    for (std::string& line : lines)
        line = LevelAndMessage(line);
    return lines;
}

// Each test begins with a fresh driver and an open channel.
class SdkTest : public zotest::DriverTest {
  protected:
    void SetUp() override {
        zotest::DriverTest::SetUp();
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        log_ = zotest::LogTail();
    }
    void TearDown() override { EXPECT_EQ(ZoProtector_Uninitialize(), ZOP_OK); }

    // The lines since the last look.
    [[nodiscard]] Lines Log() { return NewLines(log_); }

    // What the driver got in these calls.
    [[nodiscard]] std::vector<ZoSimRequest> RequestsOf(const std::function<void()>& calls) {
        const std::uint64_t before = Simulator().RequestCount();
        calls();
        return Simulator().Requests(before + 1);
    }

  private:
    zotest::LogTail log_;
};

// The driver's name of C:, asked from the platform.
[[nodiscard]] inline std::wstring DeviceOfC() {
    wchar_t target[260] = {};
    EXPECT_NE(QueryDosDeviceW(L"C:", target, 260), 0u);
    return target;
}

// A call of an export and all that it must lead to. One row after the other succeeds against a fresh driver that knows
// the process 0x01020304.
struct Request {
    std::function<int32_t()> call;
    std::uint32_t code;
    Bytes in;
    std::uint32_t outLength;
    std::string line;  // empty: none
};
[[nodiscard]] const std::vector<Request>& AllRequests();

}  // namespace sdktest
