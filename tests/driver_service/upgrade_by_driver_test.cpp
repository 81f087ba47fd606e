// Replacing an installed driver file that nothing can be done to but by the driver.

#include "debug_output.h"
#include "log_reader.h"
#include "rows.h"
#include "text.h"
#include "upgrade_fixture.h"

namespace upgradetest {
namespace {

// With the driver: the installed file is held so that not even a rename works, until protection is switched off.
class UpgradeByDriverTest : public UpgradeTest {
  protected:
    void SetUp() override {
        UpgradeTest::SetUp();
        zotest::SetImagePath(zotest::InstalledDriverPath());
        ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
        zotest::SetImagePath(installed_);
        simulator_.emplace();
        simulator_->Reset();
    }

    void TearDown() override {
        simulator_.reset();
        UpgradeTest::TearDown();
    }

    void SetMaster(bool enabled) {
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        ASSERT_EQ(ZoProtector_SetMasterEnabled(enabled), ZOP_OK);
        ASSERT_EQ(ZoProtector_Uninitialize(), ZOP_OK);
    }

    int32_t UpgradeHeldFile() {
        held_ = zotest::Hold(installed_, FILE_SHARE_READ);
        void* handler = AddVectoredExceptionHandler(1, LetGo);
        const int32_t status = Upgrade();
        RemoveVectoredExceptionHandler(handler);
        held_.Reset();
        return status;
    }

    std::optional<zotest::SimulatorClient> simulator_;

  private:
    // The log's debugger output tells the moment at which protection goes off.
    static LONG CALLBACK LetGo(EXCEPTION_POINTERS* exception) {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode == DBG_PRINTEXCEPTION_C && record.NumberParameters >= 2) {
            const std::string text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
            if (text.find("SetMasterEnabled: Disabled") != std::string::npos) held_.Reset();
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static inline zo::OwnedFile held_;
};

TEST_F(UpgradeByDriverTest, ReplacesTheFileAndPutsTheMasterSwitchBack) {
    const std::wstring beside = std::filesystem::path(installed_).parent_path().wstring();
    const zotest::Rows<std::wstring, std::wstring, const wchar_t*, bool> rows = {
        {"temporary folder on the volume", tmp_, tmp_, L".sys", true},
        {"the same drive in lower case", L"c" + tmp_.substr(1), L"c" + tmp_.substr(1), L".sys", false},
        {"temporary folder on another volume", L"Z:\\", beside, L".old", true},
        {"no temporary folder", L"C:\\" + std::wstring(300, L't'), beside, L".old", false}};
    for (const auto& [name, tmp, stagingFolder, extension, wasEnabled] : rows) {
        SCOPED_TRACE(name);
        scopedTmp_.emplace(tmp);
        SetMaster(wasEnabled);
        WriteFileBytes(installed_, old_);
        const zotest::DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), ZOP_OK);
        ExpectUpgraded(1, 1);
        EXPECT_EQ(simulator_->State().masterEnabled, wasEnabled ? 1u : 0u);
        uint32_t version[3];
        EXPECT_EQ(ZoProtector_GetVersion(&version[0], &version[1], &version[2]), ZOP_OK) << "stays initialised";
        ASSERT_EQ(StagedFiles().size(), 1u);
        const std::wstring staged = stagingFolder + L"\\" + StagedFiles()[0].filename().wstring();
        EXPECT_TRUE(zotest::AnyLineEndsWith(
            output.Strings(), "[INFO ] ReplaceFileByDriver: '" + zo::Utf8FromWide(installed_) + "' <- '" +
                                  zo::Utf8FromWide(newFile_) + "' (moved old -> '" + zo::Utf8FromWide(staged) +
                                  "', flagged delete-on-reboot)\r\n"));
        ExpectOldFileStaged(stagingFolder[0] == L'c' ? tmp_ : stagingFolder, extension);
    }
}

TEST_F(UpgradeByDriverTest, EachStepThatFailsLeavesTheOldFileAndTheMasterSwitch) {
    constexpr uint32_t kDenied = 0xC0000022;
    constexpr uint32_t kSharing = 0xC0000043;
    const zotest::Rows<uint32_t, uint32_t, uint32_t, bool, int32_t, uint32_t> rows = {
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
        simulator_->AddFault({code, skip, 1, ZOSIM_FAULT_STATUS, ntStatus, 0, 0, 0, {}});
        const zotest::DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), expected);
        const uint32_t upgraded = expected == ZOP_OK ? 1 : 0;
        ExpectUpgraded(upgraded, upgraded);
        if (upgraded != 0) ExpectOldFileStaged(tmp_, L".sys");
        EXPECT_TRUE(StagedFiles().empty());
        EXPECT_EQ(simulator_->State().masterEnabled, masterAfter);
        EXPECT_EQ(simulator_->State().faultsPending, 0u);
        const std::string line = std::string("[ERROR] ReplaceFileByDriver: IOCTL failed 0x8000000") +
                                 (ntStatus == kSharing ? "9" : "4") + " for '" + zo::Utf8FromWide(installed_) + "'\r\n";
        EXPECT_EQ(zotest::AnyLineEndsWith(output.Strings(), line), code == ZOP_IOCTL_REPLACE_FILE);
        simulator_->ClearFaults();
    }
}

// Two upgrades of one process. The first one stops before the driver replaces the file, until the second has asked for
// the master switch or has waited for a while, as it does when it must not begin yet.
struct TwoUpgrades {
    zo::OwnedKernelObject secondHasAsked{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    zo::OwnedKernelObject firstIsDone{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    zo::OwnedKernelObject second;
    std::wstring newFile;
};
TwoUpgrades* twoUpgrades;
thread_local bool isSecond;

DWORD WINAPI UpgradeAsSecond(void*) {
    isSecond = true;
    return static_cast<DWORD>(ZoProtector_UpgradeDriver(twoUpgrades->newFile.c_str(), nullptr, nullptr));
}

BOOL WINAPI MeetInTheMiddle(HANDLE device, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                            DWORD* returned, OVERLAPPED* overlapped) {
    if (isSecond && code == ZOP_IOCTL_REPLACE_FILE) WaitForSingleObject(twoUpgrades->firstIsDone.Get(), INFINITE);
    if (!isSecond && code == ZOP_IOCTL_REPLACE_FILE) {
        twoUpgrades->second.Reset(CreateThread(nullptr, 0, UpgradeAsSecond, nullptr, 0, nullptr));
        WaitForSingleObject(twoUpgrades->secondHasAsked.Get(), 500);
    }
    const BOOL done = DeviceIoControl(device, code, in, inSize, out, outSize, returned, overlapped);
    if (isSecond && code == ZOP_IOCTL_GET_MASTER_ENABLED) SetEvent(twoUpgrades->secondHasAsked.Get());
    return done;
}

TEST_F(UpgradeByDriverTest, TwoAtOnceLeaveProtectionOn) {
    SetMaster(true);
    TwoUpgrades both;
    both.newFile = newFile_;
    twoUpgrades = &both;
    const zotest::ImportHook hook("DeviceIoControl", MeetInTheMiddle);
    areAllDenied = true;
    EXPECT_EQ(Upgrade(), ZOP_OK);
    SetEvent(both.firstIsDone.Get());
    WaitForSingleObject(both.second.Get(), INFINITE);
    areAllDenied = false;
    EXPECT_EQ(simulator_->State().masterEnabled, 1u);
}

TEST_F(UpgradeByDriverTest, AStagingNameThatDoesNotFitPutsTheMasterSwitchBack) {
    scopedTmp_.emplace(L"C:\\" + std::wstring(232, L't'));
    EXPECT_EQ(UpgradeHeldFile(), kDoesNotFit);
    ExpectUpgraded(0, 0);
    std::vector<uint32_t> codes;
    for (const ZoSimRequest& request : simulator_->Requests())
        codes.push_back(request.code);
    EXPECT_EQ(codes, (std::vector<uint32_t>{ZOP_IOCTL_GET_VERSION, ZOP_IOCTL_GET_MASTER_ENABLED,
                                            ZOP_IOCTL_SET_MASTER_ENABLED, ZOP_IOCTL_SET_MASTER_ENABLED}));
    EXPECT_EQ(simulator_->State().masterEnabled, 1u);
}

}  // namespace
}  // namespace upgradetest
