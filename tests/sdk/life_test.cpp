// Opening and closing the channel, and what loading, unloading and the end of the process leave behind.

#include <gtest/gtest.h>

#include "child_process.h"
#include "driver_records.h"
#include "format.h"
#include "handle_count.h"
#include "import_hook.h"
#include "installed_driver.h"
#include "loaded_sdk.h"
#include "log_reader.h"
#include "temp_folder.h"

namespace sdktest {
namespace {

using Lines = std::vector<std::string>;

class Life : public zotest::DriverTest {
  protected:
    [[nodiscard]] std::uint32_t DevicesOpen() const { return Simulator().State().openNow; }
    [[nodiscard]] Lines Log() {
        Lines lines = log_.Next();
        for (std::string& line : lines)
            line.erase(0, 25);
        return lines;
    }

    zotest::TempFolder folder_;
    zotest::ScopedTmp tmp_{folder_.Path().wstring()};
    zotest::LogTail log_;
};

const std::string kStarting = "[INFO ] ZoProtector_Initialize: Starting SDK initialization";
const std::string kUninitialized = "[INFO ] ZoProtector_Uninitialize: SDK uninitialized";

TEST_F(Life, OnlyADriverOfMajorVersionOneIsAccepted) {
    const struct {
        std::uint32_t version[3], ntStatus;
        int32_t status;
        Lines lines;
    } cases[] = {
        {{1, 0, 0}, 0, ZOP_OK, {"[INFO ] ZoProtector_Initialize: SDK initialized (driver v1.0.0)"}},
        {{1, 9, 4294967295}, 0, ZOP_OK, {"[INFO ] ZoProtector_Initialize: SDK initialized (driver v1.9.4294967295)"}},
        {{2, 0, 0},
         0,
         ZOP_E_VERSION_MISMATCH,
         {"[ERROR] ZoProtector_Initialize: Version mismatch (driver=2.0.0, sdk=1.0.0)"}},
        {{0, 9, 9},
         0,
         ZOP_E_VERSION_MISMATCH,
         {"[ERROR] ZoProtector_Initialize: Version mismatch (driver=0.9.9, sdk=1.0.0)"}},
        {{1, 0, 0}, 0xC0000022, ZOP_E_ACCESS_DENIED, {"[ERROR] ZoProtector_Initialize: GetVersion failed 0x80000004"}},
        {{1, 0, 0},
         0xC0000001,
         ZOP_E_FAILED,
         {"[ERROR] ZopSendIoctl: DeviceIoControl(0x8000C3C4) failed, error=31",
          "[ERROR] ZoProtector_Initialize: GetVersion failed 0x80000009"}},
    };
    const LoadedSdk sdk;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lines.back());
        Simulator().SetVersion(c.version[0], c.version[1], c.version[2]);
        if (c.ntStatus != 0) Simulator().FailNext(ZOP_IOCTL_GET_VERSION, c.ntStatus);
        EXPECT_EQ(sdk.Initialize(), c.status);
        Lines lines = c.lines;
        lines.insert(lines.begin(), kStarting);
        EXPECT_EQ(Log(), lines);
        const bool open = c.status == ZOP_OK;
        EXPECT_EQ(DevicesOpen(), open ? 1u : 0u);
        std::uint32_t version[3] = {};
        EXPECT_EQ(sdk.GetVersion(version, version + 1, version + 2), open ? ZOP_OK : ZOP_E_NOT_INITIALIZED);
        EXPECT_EQ(version[1], open ? c.version[1] : 0u);
        EXPECT_EQ(sdk.SetMasterEnabled(1), open ? ZOP_OK : ZOP_E_NOT_INITIALIZED);
        static_cast<void>(Log());
        sdk.Uninitialize();
        EXPECT_EQ(DevicesOpen(), 0u);
        EXPECT_EQ(Log(), open ? Lines{kUninitialized} : Lines());
    }
    // A reply without any bytes is a driver of version 0.
    Simulator().ReturnBytes(ZOP_IOCTL_GET_VERSION, 0);
    EXPECT_EQ(sdk.Initialize(), ZOP_E_VERSION_MISMATCH);
}

Lines opened;  // "access share disposition", of the device and the log file alone

HANDLE WINAPI NoteOpening(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                          DWORD disposition, DWORD attributes, HANDLE like) {
    const std::wstring path = name;
    if (path == L"\\\\.\\ZoProtector" || path.ends_with(L".log"))
        opened.push_back(zo::Format("{:X} {} {}", access, share, disposition));
    return CreateFileW(name, access, share, security, disposition, attributes, like);
}

TEST_F(Life, TheDeviceIsOpenedOnceForOneCallerAndTheLogForOneWriter) {
    const LoadedSdk sdk;
    const zotest::ImportHook hook("CreateFileW", &NoteOpening);
    opened.clear();
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(sdk.Initialize(), ZOP_OK);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(sdk.Uninitialize(), ZOP_OK);
    }
    const std::string log = zo::Format("4 {} {}", FILE_SHARE_READ, OPEN_ALWAYS);
    const std::string device = zo::Format("C0000000 0 {}", OPEN_EXISTING);
    EXPECT_EQ(opened, (Lines{log, device, log, device}));
    EXPECT_EQ(Log().size(), 6u);  // a start, a success and an end each
}

TEST_F(Life, UnloadingLeavesNoDeviceAndNoLogFileOpen) {
    const auto log = zotest::TodaysLog();
    const struct {
        std::uint32_t driver;
        void (*use)(const LoadedSdk&);
        std::string lastLine;
    } cases[] = {
        {1, [](const LoadedSdk& sdk) { sdk.Initialize(); }, kUninitialized},
        {2, [](const LoadedSdk& sdk) { sdk.Initialize(); }, "sdk=1.0.0)"},
        {1,
         [](const LoadedSdk& sdk) {
             sdk.Initialize();
             sdk.Uninitialize();
             sdk.WriteLines();
         },
         "[INFO ] ZoProtector_GetHardwareId: produced HID"},
    };
    for (const auto& c : cases) {
        Simulator().SetVersion(c.driver, 0, 0);
        {
            const LoadedSdk sdk;
            c.use(sdk);
            EXPECT_FALSE(DeleteFileW(log.c_str())) << c.lastLine;  // open, so that the test means something
        }
        EXPECT_EQ(DevicesOpen(), 0u) << c.lastLine;
        EXPECT_TRUE(zotest::ReadLogLines().back().ends_with(c.lastLine)) << c.lastLine;
        EXPECT_TRUE(DeleteFileW(log.c_str())) << c.lastLine;
    }
}

TEST_F(Life, AHundredLoadsLeaveNoHandleBehind) {
    const auto round = [](bool initialize) {
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
        EXPECT_FALSE(result.timedOut) << way;
        EXPECT_EQ(result.exitCode, 7u) << way;
    }
    EXPECT_EQ(DevicesOpen(), 0u);
}

TEST(LifeWithoutDriver, TheOpenFailsAndADriverThatVanishesFailsItsCommands) {
    zotest::RemoveDriverService();
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    const LoadedSdk sdk;
    EXPECT_EQ(sdk.Initialize(), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_TRUE(zotest::ReadLogLines().back().ends_with("[ERROR] ZoProtector_Initialize: CreateFileW failed, error=2"));

    zotest::InstalledDriver driver;
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
