#pragma once

// The library with the simulator driver behind it, and a diagnostic log that belongs to the test program alone.

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

// A temporary folder, and so a log, that goes away.
struct OwnTemporaryFolder {
    zotest::TempFolder folder;
    zotest::ScopedTmp tmp{folder.Path().wstring()};
};

// Each test begins with a fresh driver and an open channel.
class SdkTest : public zotest::DriverTest {
  protected:
    void SetUp() override {
        zotest::DriverTest::SetUp();
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        log_ = zotest::LogTail();
    }
    void TearDown() override { EXPECT_EQ(ZoProtector_Uninitialize(), ZOP_OK); }

    [[nodiscard]] Lines Log() { return log_.Next(); }

    // What the driver got in these calls.
    template <typename Calls>
    [[nodiscard]] std::vector<ZoSimRequest> RequestsOf(const Calls& calls) {
        const std::uint64_t before = Simulator().RequestCount();
        calls();
        return Simulator().Requests(before + 1);
    }

  private:
    zotest::LogTail log_;
};

// A call of an export, without the part of its name that all have: ZOP_CALL(GetStatus(nullptr)).
struct Call {
    const char* text;
    int32_t (*make)();
};
#define ZOP_CALL(...)                                          \
    sdktest::Call {                                            \
        #__VA_ARGS__, [] { return ZoProtector_##__VA_ARGS__; } \
    }

// A call and all that it must lead to. One row after the other succeeds against a fresh driver that knows the process
// 0x01020304.
struct Request {
    Call call;
    std::uint32_t code;
    Bytes in;
    const char* line = nullptr;  // what follows the export's name in the log; null: no line
    std::uint32_t outLength = 0;
};
[[nodiscard]] const std::vector<Request>& AllRequests();

}  // namespace sdktest
