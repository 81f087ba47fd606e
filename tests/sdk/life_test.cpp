// What loading, opening, closing, unloading and the end of the process do to the channel and to the diagnostic log.
// Each load of the library begins with a state of its own.

#include <cstdlib>
#include <future>
#include <optional>
#include <utility>

#include "child_process.h"
#include "import_hook.h"
#include "loaded_sdk.h"
#include "process_counts.h"
#include "zocrashreport.h"

namespace sdktest {
namespace {

class Life : public zotest::DriverTest, OwnTemporaryFolder {
  protected:
    [[nodiscard]] std::uint32_t DevicesOpen() const { return Simulator().State().openNow; }
    [[nodiscard]] Lines Log() { return log_.Next(); }

  private:
    zotest::LogTail log_;
};

const std::string kOurVersion =
    zo::Format("sdk={}.{}.{})", ZOP_SDK_VERSION_MAJOR, ZOP_SDK_VERSION_MINOR, ZOP_SDK_VERSION_PATCH);
const std::string kUninitialized = "[INFO ] ZoProtector_Uninitialize: SDK uninitialized";

TEST_F(Life, OnlyADriverOfMajorVersionOneIsAccepted) {
    const struct {
        std::uint32_t version[3], ntStatus;
        int32_t status;
        std::string line;
    } cases[] = {
        {{1, 9, 4294967295}, 0, ZOP_OK, "SDK initialized (driver v1.9.4294967295)"},
        {{2, 0, 0}, 0, ZOP_E_VERSION_MISMATCH, "Version mismatch (driver=2.0.0, " + kOurVersion},
        {{0, 9, 9}, 0, ZOP_E_VERSION_MISMATCH, "Version mismatch (driver=0.9.9, " + kOurVersion},
        {{1, 0, 0}, 0xC0000022, ZOP_E_ACCESS_DENIED, "GetVersion failed 0x80000004"},
    };
    const LoadedSdk sdk;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        Simulator().SetVersion(c.version[0], c.version[1], c.version[2]);
        if (c.ntStatus != 0) Simulator().FailNext(ZOP_IOCTL_GET_VERSION, c.ntStatus);
        EXPECT_EQ(sdk.Initialize(), c.status);
        const bool open = c.status == ZOP_OK;
        EXPECT_EQ(Log(), (Lines{"[INFO ] ZoProtector_Initialize: Starting SDK initialization",
                                zo::Format("[{}] ZoProtector_Initialize: {}", open ? "INFO " : "ERROR", c.line)}));
        EXPECT_EQ(DevicesOpen(), open ? 1u : 0u);
        std::uint32_t version[3] = {};
        EXPECT_EQ(sdk.GetVersion(version, version + 1, version + 2), open ? ZOP_OK : ZOP_E_NOT_INITIALIZED);
        EXPECT_EQ(version[1], open ? 9u : 0u);
        sdk.Uninitialize();
        EXPECT_EQ(DevicesOpen(), 0u);
        EXPECT_EQ(Log(), open ? Lines{kUninitialized} : Lines());
    }
    // A reply without any bytes is a driver of version 0.
    Simulator().ReturnBytes(ZOP_IOCTL_GET_VERSION, 0);
    EXPECT_EQ(sdk.Initialize(), ZOP_E_VERSION_MISMATCH);
}

TEST_F(Life, TheDeviceIsOpenedOnceForOneCallerAndTheLogForOneWriter) {
    const LoadedSdk sdk;
    Lines opened;  // "access share disposition flags", of the device and the log file alone
    const zotest::ImportHook hook(
        "CreateFileW", CreateFileW,
        [&](const wchar_t* name, DWORD access, DWORD share, auto* security, DWORD disposition, DWORD flags,
            HANDLE pattern) {
            const std::wstring path = name;
            if (path == L"\\\\.\\ZoProtector" || path.ends_with(L".log"))
                opened.push_back(zo::Format("{:X} {} {} {:X}", access, share, disposition, flags));
            return CreateFileW(name, access, share, security, disposition, flags, pattern);
        });
    for (const auto call : {sdk.Initialize, sdk.Initialize, sdk.Uninitialize, sdk.Uninitialize, sdk.Initialize})
        EXPECT_EQ(call(), ZOP_OK);
    const std::string log = zo::Format("4 {} {} 200080", FILE_SHARE_READ, OPEN_ALWAYS);
    const std::string device = zo::Format("C0000000 0 {} 80", OPEN_EXISTING);
    EXPECT_EQ(opened, (Lines{log, device, log, device}));
    EXPECT_EQ(Log().size(), 5u);  // two starts, two successes, one end
}

TEST_F(Life, UnloadingLeavesNoDeviceNoLogFileNoHandleAndNoMemory) {
    const auto log = zotest::TodaysLog();
    const struct {
        std::uint32_t driver;
        bool closes;
        std::string lastLine;
    } cases[] = {
        {1, false, kUninitialized},
        {2, false, kOurVersion},
        {1, true, "[INFO ] ZoProtector_GetHardwareId: produced HID"},
    };
    std::optional<zotest::Holdings> before;
    for (int load = 0; load < 100; ++load) {
        const auto& c = cases[load % 3];
        Simulator().SetVersion(c.driver, 0, 0);
        {
            const LoadedSdk sdk;
            sdk.Initialize();
            if (c.closes) {
                sdk.Uninitialize();
                sdk.WriteLines();
            }
            EXPECT_FALSE(DeleteFileW(log.c_str())) << c.lastLine;  // open, so that the test means something
        }
        ASSERT_EQ(DevicesOpen(), 0u) << c.lastLine;
        ASSERT_TRUE(zotest::ReadLogLines().back().ends_with(c.lastLine)) << c.lastLine;
        ASSERT_TRUE(DeleteFileW(log.c_str())) << c.lastLine;
        if (load == 2) before.emplace();
    }
    const zotest::Holdings after;
    EXPECT_EQ(after.handles, before->handles);
    EXPECT_LT(after.blocks, before->blocks + 20);  // the platform keeps a few now and then
}

// What may be called under the loader lock must not wait for it: another thread has it here.
TEST_F(Life, CallsAllowedUnderTheLoaderLockDoNotWaitForIt) {
    const LoadedSdk sdk;
    ASSERT_EQ(sdk.Initialize(), ZOP_OK);
    const auto reset = ZOTEST_FUNCTION(sdk.library, ZoCrashReport_ResetCancel);
    const auto cancel = ZOTEST_FUNCTION(sdk.library, ZoCrashReport_Cancel);
    const auto notify = ZOTEST_FUNCTION(sdk.library, ZoCrashReport_NotifyNetworkOk);
    reset();
    const zotest::LoadedLibrary ntdll("ntdll.dll");
    const auto lock = ntdll.Find<LONG WINAPI(ULONG, ULONG*, ULONG_PTR*)>("LdrLockLoaderLock");
    const auto unlock = ntdll.Find<LONG WINAPI(ULONG, ULONG_PTR)>("LdrUnlockLoaderLock");
    std::promise<void> locked, called;
    auto calledInTime = std::async(std::launch::async, [&] {
        ULONG_PTR cookie = 0;
        lock(0, nullptr, &cookie);
        locked.set_value();
        const std::future_status status = called.get_future().wait_for(std::chrono::seconds(5));
        unlock(0, cookie);
        return status == std::future_status::ready;
    });
    locked.get_future().wait();
    for (const auto call : {sdk.Uninitialize, cancel, reset, notify})
        EXPECT_EQ(call(), ZOP_OK);
    called.set_value();
    EXPECT_TRUE(calledInTime.get());
}

// The children of the tests below, which end with code 7 when all is well.
constexpr UINT kGoodEnd = 7;

void EndWhileAThreadWrites(const std::string& line) {
    static const LoadedSdk sdk;  // unloaded by the end of the process only
    bool isEnding = false;
    const zo::OwnedKernelObject stopped(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    // While a process shuts down, Windows ends it at once when it waits for a lock whose owner is gone. Wine lets it
    // through.
    const zotest::ImportHook enter("EnterCriticalSection", EnterCriticalSection, [&](CRITICAL_SECTION* section) {
        if (!isEnding) return EnterCriticalSection(section);
        if (!TryEnterCriticalSection(section)) TerminateProcess(GetCurrentProcess(), 13);
    });
    // The thread that writes the line stops inside the locks.
    const zotest::ImportHook write(
        "WriteFile", WriteFile, [&](HANDLE file, const void* bytes, DWORD size, auto... rest) {
            if (std::string(static_cast<const char*>(bytes), size).find(line) != std::string::npos) {
                SetEvent(stopped.Get());
                Sleep(INFINITE);
            }
            return WriteFile(file, bytes, size, rest...);
        });
    const auto run = [](void*) -> DWORD {
        sdk.Initialize();
        sdk.WriteLines();
        return 0;
    };
    const zo::OwnedKernelObject thread(CreateThread(nullptr, 0, run, nullptr, 0, nullptr));
    WaitForSingleObject(stopped.Get(), INFINITE);
    isEnding = true;
    ExitProcess(kGoodEnd);
}

TEST(LifeChild, DISABLED_EndsWhileAThreadHoldsTheLogLock) {
    EndWhileAThreadWrites("produced HID");
}

TEST(LifeChild, DISABLED_EndsWhileAThreadHoldsBothLocks) {
    EndWhileAThreadWrites("SDK initialized");
}

TEST(LifeChild, DISABLED_UnloadsWithoutMemoryForTheLogLine) {
    std::optional<LoadedSdk> sdk(std::in_place);
    sdk->Initialize();
    bool allocationFailed = false;
    const zotest::ImportHook hook("malloc", std::malloc, [&](std::size_t size) -> void* {
        return std::exchange(allocationFailed, true) ? std::malloc(size) : nullptr;
    });
    sdk.reset();
    ExitProcess(allocationFailed && DeleteFileW(zotest::TodaysLog().c_str()) ? kGoodEnd : 0);
}

void ExpectGoodEndOf(const std::string& child) {
    SCOPED_TRACE(child);
    const std::wstring program = (zotest::ProgramFolder() / "sdk_life_test.exe").wstring();
    const std::wstring filter = L"--gtest_filter=LifeChild.DISABLED_" + zo::WideFromUtf8(child);
    const zotest::ChildResult result = zotest::RunChild(program, {L"--gtest_also_run_disabled_tests", filter});
    EXPECT_EQ(result.exitCode, kGoodEnd) << result.out;
}

TEST_F(Life, TheEndOfTheProcessWaitsForNoLock) {
    ExpectGoodEndOf("EndsWhileAThreadHoldsTheLogLock");
    ExpectGoodEndOf("EndsWhileAThreadHoldsBothLocks");
    EXPECT_EQ(DevicesOpen(), 0u);
}

TEST_F(Life, UnloadingWithoutMemoryForTheLogLineClosesEverything) {
    ExpectGoodEndOf("UnloadsWithoutMemoryForTheLogLine");
    EXPECT_EQ(DevicesOpen(), 0u);
}

TEST(LifeWithoutDriver, TheOpenFailsAndADriverThatVanishesFailsItsCommands) {
    zotest::RemoveDriverService();
    const OwnTemporaryFolder temporary;
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
