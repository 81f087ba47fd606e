// Opening and closing the channel, and what loading, unloading and the end of the process leave behind.

#include <gtest/gtest.h>

#include "child_process.h"
#include "driver_records.h"
#include "format.h"
#include "handle_count.h"
#include "installed_driver.h"
#include "loaded_sdk.h"
#include "log_reader.h"
#include "temp_folder.h"

namespace sdktest {
namespace {

using Lines = std::vector<std::string>;

Lines Messages(Lines lines) {
    for (std::string& line : lines)
        line.erase(0, 25);
    return lines;
}

class Life : public zotest::DriverTest {
  protected:
    [[nodiscard]] std::uint32_t DevicesOpen() const { return Simulator().State().openNow; }
    [[nodiscard]] Lines Log() { return Messages(log_.Next()); }

    zotest::TempFolder folder_;
    zotest::ScopedTmp tmp_{folder_.Path().wstring()};
    zotest::LogTail log_;
};

const std::string kStarting = "[INFO ] ZoProtector_Initialize: Starting SDK initialization";
const std::string kUninitialized = "[INFO ] ZoProtector_Uninitialize: SDK uninitialized";

TEST_F(Life, ADriverOfMajorVersionOneIsAccepted) {
    const struct {
        std::uint32_t version[3];
        int32_t status;
        const char* line;
    } cases[] = {
        {{1, 0, 0}, ZOP_OK, "[INFO ] ZoProtector_Initialize: SDK initialized (driver v1.0.0)"},
        {{1, 7, 3}, ZOP_OK, "[INFO ] ZoProtector_Initialize: SDK initialized (driver v1.7.3)"},
        {{1, 9, 4294967295}, ZOP_OK, "[INFO ] ZoProtector_Initialize: SDK initialized (driver v1.9.4294967295)"},
        {{2, 0, 0},
         ZOP_E_VERSION_MISMATCH,
         "[ERROR] ZoProtector_Initialize: Version mismatch (driver=2.0.0, sdk=1.0.0)"},
        {{0, 9, 9},
         ZOP_E_VERSION_MISMATCH,
         "[ERROR] ZoProtector_Initialize: Version mismatch (driver=0.9.9, sdk=1.0.0)"},
    };
    const LoadedSdk sdk;
    for (const auto& c : cases) {
        Simulator().SetVersion(c.version[0], c.version[1], c.version[2]);
        EXPECT_EQ(sdk.Initialize(), c.status);
        EXPECT_EQ(Log(), (Lines{kStarting, c.line}));
        EXPECT_EQ(DevicesOpen(), c.status == ZOP_OK ? 1u : 0u);
        std::uint32_t version[3] = {};
        EXPECT_EQ(sdk.GetVersion(version, version + 1, version + 2),
                  c.status == ZOP_OK ? ZOP_OK : ZOP_E_NOT_INITIALIZED);
        EXPECT_EQ(version[1], c.status == ZOP_OK ? c.version[1] : 0u);
        sdk.Uninitialize();
        EXPECT_EQ(DevicesOpen(), 0u);
        EXPECT_EQ(Log(), c.status == ZOP_OK ? Lines{kUninitialized} : Lines());
    }
}

TEST_F(Life, AFailedHandshakeClosesTheDevice) {
    const LoadedSdk sdk;
    const struct {
        std::uint32_t ntStatus;
        int32_t status;
        Lines lines;
    } cases[] = {
        {0xC0000022, ZOP_E_ACCESS_DENIED, {kStarting, "[ERROR] ZoProtector_Initialize: GetVersion failed 0x80000004"}},
        {0xC0000001,
         ZOP_E_FAILED,
         {kStarting, "[ERROR] ZopSendIoctl: DeviceIoControl(0x8000C3C4) failed, error=31",
          "[ERROR] ZoProtector_Initialize: GetVersion failed 0x80000009"}},
    };
    for (const auto& c : cases) {
        Simulator().FailNext(ZOP_IOCTL_GET_VERSION, c.ntStatus);
        EXPECT_EQ(sdk.Initialize(), c.status);
        EXPECT_EQ(Log(), c.lines);
        EXPECT_EQ(DevicesOpen(), 0u);
        EXPECT_EQ(sdk.SetMasterEnabled(1), ZOP_E_NOT_INITIALIZED);
    }
    // A reply without any bytes is a driver of version 0.
    Simulator().ReturnBytes(ZOP_IOCTL_GET_VERSION, 0);
    EXPECT_EQ(sdk.Initialize(), ZOP_E_VERSION_MISMATCH);
}

TEST_F(Life, TheDeviceIsOpenedOnceHoweverOftenOneInitializes) {
    const LoadedSdk sdk;
    const std::uint32_t before = Simulator().State().opensSoFar;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sdk.Initialize(), ZOP_OK);
    EXPECT_EQ(Simulator().State().opensSoFar, before + 1);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sdk.Uninitialize(), ZOP_OK);
    EXPECT_EQ(sdk.Initialize(), ZOP_OK);
    EXPECT_EQ(Simulator().State().opensSoFar, before + 2);
    EXPECT_EQ(Log().size(), 5u);  // two pairs and one end
}

TEST_F(Life, UnloadingLeavesNoDeviceAndNoLogFileOpen) {
    const auto log = zotest::TodaysLog();
    const struct {
        const char* name;
        void (*use)(const LoadedSdk&, const zotest::SimulatorClient&);
        const char* lastLine;
    } cases[] = {
        {"initialised", [](const LoadedSdk& sdk, const zotest::SimulatorClient&) { sdk.Initialize(); },
         kUninitialized.c_str()},
        {"initialisation failed",
         [](const LoadedSdk& sdk, const zotest::SimulatorClient& simulator) {
             simulator.SetVersion(2, 0, 0);
             sdk.Initialize();
         },
         "sdk=1.0.0)"},
        {"line after uninitialisation",
         [](const LoadedSdk& sdk, const zotest::SimulatorClient&) {
             sdk.Initialize();
             sdk.Uninitialize();
             sdk.WriteLines();
         },
         "[INFO ] ZoProtector_GetHardwareId: produced HID"},
    };
    for (const auto& c : cases) {
        Simulator().Reset();
        {
            const LoadedSdk sdk;
            c.use(sdk, Simulator());
            EXPECT_FALSE(DeleteFileW(log.c_str())) << c.name;  // open, so that the test means something
        }
        EXPECT_EQ(DevicesOpen(), 0u) << c.name;
        EXPECT_TRUE(zotest::AnyLineEndsWith({zotest::ReadLogLines().back()}, c.lastLine)) << c.name;
        EXPECT_TRUE(DeleteFileW(log.c_str())) << c.name;
    }
}

TEST_F(Life, AHundredLoadsLeaveNoHandleBehind) {
    const auto round = [&](bool initialize) {
        const LoadedSdk sdk;
        EXPECT_EQ(initialize ? sdk.Initialize() : ZOP_OK, ZOP_OK);
        sdk.WriteLines();
    };
    round(true);
    const std::uint32_t before = zotest::OpenHandleCount();
    for (int i = 0; i < 100; ++i)
        round(i % 2 == 0);
    EXPECT_EQ(zotest::OpenHandleCount(), before);
}

TEST_F(Life, TheProcessEndsAtOnceWhileOtherThreadsLog) {
    const std::wstring program = (zotest::ProgramFolder() / "exit_while_logging.exe").wstring();
    for (const wchar_t* way : {L"exit", L"exit", L"uninitialize", L"uninitialize"}) {
        zotest::ChildOptions options;
        options.timeoutMs = 30000;
        const zotest::ChildResult result = zotest::RunChild(program, {way}, options);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, 7u);
    }
    EXPECT_EQ(DevicesOpen(), 0u);
}

// Without a driver.
TEST(LifeWithoutDriver, TheOpenFailsAndSaysWhy) {
    zotest::RemoveDriverService();
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    const LoadedSdk sdk;
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(sdk.Initialize(), ZOP_E_DRIVER_NOT_FOUND);
    const std::string failed = "[ERROR] ZoProtector_Initialize: CreateFileW failed, error=2";
    EXPECT_EQ(Messages(zotest::ReadLogLines()), (Lines{kStarting, failed, kStarting, failed}));
}

// A driver that goes away under an open handle.
TEST(LifeWithoutDriver, CommandsFailWhenTheDriverVanishes) {
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    zotest::InstalledDriver driver;
    const LoadedSdk sdk;
    ASSERT_EQ(sdk.Initialize(), ZOP_OK);
    driver.Stop();
    EXPECT_LT(sdk.SetMasterEnabled(1), 0);
    EXPECT_EQ(sdk.Uninitialize(), ZOP_OK);
    driver.Start();
    EXPECT_EQ(sdk.Initialize(), ZOP_OK);
    EXPECT_EQ(sdk.SetMasterEnabled(1), ZOP_OK);
}

}  // namespace
}  // namespace sdktest
