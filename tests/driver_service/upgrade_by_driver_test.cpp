// Replacing an installed driver file that nothing can be done to but by the driver.

#include <chrono>
#include <future>
#include <thread>

#include "debug_output.h"
#include "log_reader.h"
#include "text.h"
#include "upgrade_fixture.h"

namespace zotest {
namespace {

// With the driver: the installed file is held so that not even a rename works, until protection is switched off.
class UpgradeByDriverTest : public UpgradeTest {
  protected:
    void SetUp() override {
        UpgradeTest::SetUp();
        SetImagePath(InstalledDriverPath());
        ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        SetImagePath(installed_);
        Simulator().Reset();
    }

    // Not kept open: that would keep the driver loaded.
    static SimulatorClient Simulator() { return {}; }

    void SetMaster(bool enabled) {
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        ASSERT_EQ(ZoProtector_SetMasterEnabled(enabled), ZOP_OK);
        ASSERT_EQ(ZoProtector_Uninitialize(), ZOP_OK);
    }

    int32_t UpgradeHeldFile() {
        zo::OwnedFile held = Hold(installed_, FILE_SHARE_READ);
        const ImportHook letGo("DeviceIoControl", DeviceIoControl, [&](HANDLE device, DWORD code, auto... rest) {
            if (code == ZOP_IOCTL_REPLACE_FILE && Simulator().State().masterEnabled == 0) held.Reset();
            return DeviceIoControl(device, code, rest...);
        });
        return Upgrade();
    }
};

TEST_F(UpgradeByDriverTest, ReplacesTheFileAndPutsTheMasterSwitchBack) {
    const Rows<std::wstring, std::wstring, const wchar_t*, bool> rows = {
        {"temporary folder on the volume", tmp_, tmp_, L".sys", true},
        {"the same drive in lower case", L"c" + tmp_.substr(1), L"c" + tmp_.substr(1), L".sys", false},
        {"temporary folder on another volume", L"Z:\\" + std::wstring(150, L't'), beside_, L".old", true},
        {"no temporary folder", L"C:\\" + std::wstring(300, L't'), beside_, L".old", false}};
    for (const auto& [name, tmp, stagingFolder, extension, wasEnabled] : rows) {
        SCOPED_TRACE(name);
        scopedTmp_.emplace(tmp);
        SetMaster(wasEnabled);
        WriteFileBytes(installed_, old_);
        const DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), ZOP_OK);
        ExpectUpgraded(1, 1);
        EXPECT_EQ(Simulator().State().masterEnabled, wasEnabled ? 1u : 0u);
        uint32_t version[3];
        EXPECT_EQ(ZoProtector_GetVersion(&version[0], &version[1], &version[2]), ZOP_OK) << "stays initialised";
        ASSERT_EQ(StagedFiles().size(), 1u);
        const std::wstring staged = stagingFolder + L"\\" + StagedFiles()[0].filename().wstring();
        EXPECT_TRUE(AnyLineEndsWith(output.Strings(), "[INFO ] ReplaceFileByDriver: '" + zo::Utf8FromWide(installed_) +
                                                          "' <- '" + zo::Utf8FromWide(newFile_) + "' (moved old -> '" +
                                                          zo::Utf8FromWide(staged) +
                                                          "', flagged delete-on-reboot)\r\n"));
        ExpectOldFileStaged(stagingFolder[0] == L'c' ? tmp_ : stagingFolder, extension);
    }
}

TEST_F(UpgradeByDriverTest, EachStepThatFailsLeavesTheOldFileAndTheMasterSwitch) {
    constexpr uint32_t kDenied = 0xC0000022;
    constexpr uint32_t kSharing = 0xC0000043;
    const Rows<uint32_t, uint32_t, uint32_t, bool, int32_t, uint32_t> rows = {
        {"handshake", ZOP_IOCTL_GET_VERSION, kDenied, 0, true, ZOP_E_ACCESS_DENIED, 1},
        {"reading the switch", ZOP_IOCTL_GET_MASTER_ENABLED, kDenied, 0, false, ZOP_OK, 1},
        {"switching off", ZOP_IOCTL_SET_MASTER_ENABLED, kDenied, 0, true, ZOP_E_ACCESS_DENIED, 1},
        {"replacing, denied", ZOP_IOCTL_REPLACE_FILE, kDenied, 0, true, ZOP_E_ACCESS_DENIED, 1},
        {"replacing, in use", ZOP_IOCTL_REPLACE_FILE, kSharing, 0, false, ZOP_E_FAILED, 0},
        {"switching on again", ZOP_IOCTL_SET_MASTER_ENABLED, kDenied, 1, true, ZOP_OK, 0},
    };
    for (const auto& [name, code, ntStatus, skip, masterBefore, expected, masterAfter] : rows) {
        SCOPED_TRACE(name);
        WriteFileBytes(installed_, old_);
        SetMaster(masterBefore);
        Simulator().AddFault({code, skip, 1, ZOSIM_FAULT_STATUS, ntStatus, 0, 0, 0, {}});
        const DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), expected);
        const uint32_t upgraded = expected == ZOP_OK ? 1 : 0;
        ExpectUpgraded(upgraded, upgraded);
        if (upgraded != 0) ExpectOldFileStaged(tmp_, L".sys");
        EXPECT_TRUE(StagedFiles().empty());
        EXPECT_EQ(Simulator().State().masterEnabled, masterAfter);
        EXPECT_EQ(Simulator().State().faultsPending, 0u);
        const std::string line = std::string("[ERROR] ReplaceFileByDriver: IOCTL failed 0x8000000") +
                                 (ntStatus == kSharing ? "9" : "4") + " for '" + zo::Utf8FromWide(installed_) + "'\r\n";
        EXPECT_EQ(AnyLineEndsWith(output.Strings(), line), code == ZOP_IOCTL_REPLACE_FILE);
        Simulator().ClearFaults();
    }
}

// The first one stops before the driver replaces the file, until the second has asked for the master switch or has
// waited for a while, as it does when it must not begin yet.
TEST_F(UpgradeByDriverTest, TwoAtOnceLeaveProtectionOn) {
    SetMaster(true);
    std::thread second;
    std::promise<void> secondHasAsked;
    std::promise<void> firstIsDone;
    const ImportHook copy("CopyFileW", FailWith<ERROR_ACCESS_DENIED>);
    const ImportHook move("MoveFileExW", FailWith<ERROR_ACCESS_DENIED>);
    const auto first = std::this_thread::get_id();
    const ImportHook hook("DeviceIoControl", DeviceIoControl, [&](HANDLE device, DWORD code, auto... rest) {
        const bool isFirst = std::this_thread::get_id() == first;
        if (code == ZOP_IOCTL_REPLACE_FILE && !isFirst) firstIsDone.get_future().wait();
        if (code == ZOP_IOCTL_REPLACE_FILE && isFirst) {
            second = std::thread([&] { ZoProtector_UpgradeDriver(newFile_.c_str(), nullptr, nullptr); });
            secondHasAsked.get_future().wait_for(std::chrono::milliseconds(500));
        }
        const BOOL done = DeviceIoControl(device, code, rest...);
        if (code == ZOP_IOCTL_GET_MASTER_ENABLED && !isFirst) secondHasAsked.set_value();
        return done;
    });
    EXPECT_EQ(Upgrade(), ZOP_OK);
    firstIsDone.set_value();
    second.join();
    EXPECT_EQ(Simulator().State().masterEnabled, 1u);
}

TEST_F(UpgradeByDriverTest, AStagingNameThatDoesNotFitPutsTheMasterSwitchBack) {
    scopedTmp_.emplace(L"C:\\" + std::wstring(232, L't'));
    EXPECT_EQ(UpgradeHeldFile(), kDoesNotFit);
    ExpectUpgraded(0, 0);
    std::vector<uint32_t> codes;
    for (const ZoSimRequest& request : Simulator().Requests())
        codes.push_back(request.code);
    EXPECT_EQ(codes, (std::vector<uint32_t>{ZOP_IOCTL_GET_VERSION, ZOP_IOCTL_GET_MASTER_ENABLED,
                                            ZOP_IOCTL_SET_MASTER_ENABLED, ZOP_IOCTL_SET_MASTER_ENABLED}));
    EXPECT_EQ(Simulator().State().masterEnabled, 1u);
}

}  // namespace
}  // namespace zotest
