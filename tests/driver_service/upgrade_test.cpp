#include <optional>
#include <string>
#include <vector>

#include "debug_output.h"
#include "driver_set_up.h"
#include "import_hook.h"
#include "log_reader.h"
#include "text.h"

namespace {

using zotest::DriverOfVersion;
using zotest::ReadFileBytes;
using zotest::WriteFileBytes;

constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);

// The results of the library's next file operations; 0 means that the call is really made, as it is after the last one.
// Files that are marked for deletion at restart are only remembered.
std::vector<DWORD> copyErrors;
std::vector<DWORD> moveErrors;
std::wstring deletedAtRestart;

bool areAllDenied;

bool IsScripted(std::vector<DWORD>& errors) {
    if (areAllDenied) SetLastError(ERROR_ACCESS_DENIED);
    if (areAllDenied) return true;
    if (errors.empty()) return false;
    const DWORD error = errors.front();
    errors.erase(errors.begin());
    SetLastError(error);
    return error != 0;
}

// A folder in which somebody tries to delete every file while the library copies.
std::filesystem::path attackedFolder;
std::vector<DWORD> attackErrors;

void DeleteFilesOf(const std::filesystem::path& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        attackErrors.push_back(DeleteFileW(entry.path().c_str()) ? ERROR_SUCCESS : GetLastError());
}

BOOL WINAPI ScriptedCopy(const wchar_t* from, const wchar_t* to, BOOL failIfThere) {
    if (!attackedFolder.empty()) DeleteFilesOf(attackedFolder);
    return IsScripted(copyErrors) ? FALSE : CopyFileW(from, to, failIfThere);
}

// When somebody puts another file in the place of the renamed one.
enum class Swap { kNever, kAfterTheRename, kBeforeTheMoveBack };
Swap swap = Swap::kNever;
constexpr char kForeign[] = "foreign";

void SwapFile(const wchar_t* path) {
    std::filesystem::rename(path, std::filesystem::path(path).replace_extension("aside"));
    WriteFileBytes(path, kForeign);
    swap = Swap::kNever;
}

BOOL WINAPI ScriptedMove(const wchar_t* from, const wchar_t* to, DWORD flags) {
    EXPECT_EQ(flags & MOVEFILE_COPY_ALLOWED, 0u) << "on another volume the old file must not be copied";
    if (IsScripted(moveErrors)) return FALSE;
    if (flags != MOVEFILE_DELAY_UNTIL_REBOOT) {
        const bool isMoveBack = !deletedAtRestart.empty();
        if (isMoveBack && swap == Swap::kBeforeTheMoveBack) SwapFile(from);
        const BOOL done = MoveFileExW(from, to, flags);
        if (!isMoveBack && swap == Swap::kAfterTheRename) SwapFile(to);
        return done;
    }
    EXPECT_EQ(to, nullptr);
    deletedAtRestart = from;
    return TRUE;
}

// An installed driver file of our own behind the service's image path, and a temporary folder of our own.
class UpgradeTest : public zotest::BareSystemTest {
  protected:
    static void SetUpTestSuite() { ZoProtector_Initialize(); }  // has the log chosen its folder before TMP changes

    void SetUp() override {
        BareSystemTest::SetUp();
        std::filesystem::create_directories(tmp_);
        ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
        zotest::SetImagePath(L"\\??\\" + installed_);
        WriteFileBytes(installed_, old_);
        WriteFileBytes(newFile_, new_);
        scopedTmp_.emplace(tmp_);
    }

    void TearDown() override {
        scopedTmp_.reset();
        BareSystemTest::TearDown();
    }

    int32_t UpgradeTo(const wchar_t* path) {
        upgraded_ = replacedByDriver_ = 77;
        return ZoProtector_UpgradeDriver(path, &upgraded_, &replacedByDriver_);
    }
    int32_t Upgrade() { return UpgradeTo(newFile_.c_str()); }

    void ExpectUpgraded(uint32_t upgraded, uint32_t replacedByDriver) {
        EXPECT_EQ(upgraded_, upgraded);
        EXPECT_EQ(replacedByDriver_, replacedByDriver);
        EXPECT_TRUE(ReadFileBytes(installed_) == (upgraded != 0 ? new_ : old_)) << "the installed file's contents";
        EXPECT_TRUE(ReadFileBytes(newFile_) == new_) << "the new file's contents";
    }

    // Files in the temporary folder and beside the installed file that were not put there by the test.
    std::vector<std::filesystem::path> StagedFiles() const {
        std::vector<std::filesystem::path> files;
        for (const auto& folder : {std::filesystem::path(tmp_), std::filesystem::path(installed_).parent_path()}) {
            for (const auto& entry : std::filesystem::directory_iterator(folder)) {
                if (entry.path() != installed_) files.push_back(entry.path());
            }
        }
        return files;
    }

    void ExpectOldFileStaged(const std::wstring& folder, const wchar_t* extension) {
        const auto files = StagedFiles();
        ASSERT_EQ(files.size(), 1u);
        EXPECT_EQ(files[0].parent_path(), folder);
        EXPECT_EQ(files[0].extension(), extension);
        EXPECT_EQ(files[0].filename().wstring().find(L"ZoProtectorDriver_"), 0u);
        EXPECT_TRUE(ReadFileBytes(files[0]) == old_);
        EXPECT_EQ(deletedAtRestart.substr(1), files[0].wstring().substr(1)) << "but for the drive's letter case";
        deletedAtRestart.clear();
        std::filesystem::remove(files[0]);
    }

    const zotest::TempFolder folder_;
    const std::wstring installed_ = (folder_ / L"installed" / L"driver.sys").wstring();
    const std::wstring newFile_ = (folder_ / L"new.sys").wstring();
    const std::wstring tmp_ = (folder_ / L"tmp").wstring();
    std::string old_ = DriverOfVersion({1, 2, 3, 4});
    std::string new_ = DriverOfVersion({1, 2, 3, 5});
    uint32_t upgraded_ = 0;
    uint32_t replacedByDriver_ = 0;
    std::optional<zotest::ScopedTmp> scopedTmp_;
    const zotest::ImportHook copy_{"CopyFileW", ScriptedCopy};
    const zotest::ImportHook move_{"MoveFileExW", ScriptedMove};
};

TEST_F(UpgradeTest, OnlyAHigherVersionReplacesTheFile) {
    using Version = std::array<std::uint16_t, 4>;
    const struct {
        const char* name;
        std::string oldFile;
        Version newVersion;
        uint32_t upgraded;
    } rows[] = {
        {"same version", DriverOfVersion({1, 2, 3, 4}) + "old", {1, 2, 3, 4}, 0},
        {"lower revision", DriverOfVersion({1, 2, 3, 4}), {1, 2, 3, 3}, 0},
        {"lower major", DriverOfVersion({2, 0, 0, 0}), {1, 65535, 65535, 65535}, 0},
        {"higher build", DriverOfVersion({1, 2, 3, 65535}), {1, 2, 4, 0}, 1},
        {"higher minor", DriverOfVersion({1, 2, 65535, 0}), {1, 3, 0, 0}, 1},
        {"higher major", DriverOfVersion({32767, 65535, 0, 0}), {65535, 0, 0, 0}, 1},
        {"over a file without a version", "unversioned", {0, 0, 0, 1}, 1},
        {"version 0 over a file without one", "unversioned", {0, 0, 0, 0}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WriteFileBytes(installed_, old_ = row.oldFile);
        WriteFileBytes(newFile_, new_ = DriverOfVersion(row.newVersion));
        EXPECT_EQ(Upgrade(), ZOP_OK);
        ExpectUpgraded(row.upgraded, 0);
        EXPECT_TRUE(StagedFiles().empty());
    }
}

TEST_F(UpgradeTest, TheOutputsAreOptional) {
    EXPECT_EQ(ZoProtector_UpgradeDriver(newFile_.c_str(), nullptr, nullptr), ZOP_OK);
    EXPECT_TRUE(ReadFileBytes(installed_) == new_);
}

TEST_F(UpgradeTest, ClearsTheReadOnlyAttributeOfTheCopy) {
    SetFileAttributesW(newFile_.c_str(), FILE_ATTRIBUTE_READONLY);
    for (const bool isInUse : {false, true}) {
        WriteFileBytes(installed_, old_);
        const zo::OwnedFile inUse =
            isInUse ? zotest::Hold(installed_, FILE_SHARE_READ | FILE_SHARE_DELETE) : zo::OwnedFile();
        EXPECT_EQ(Upgrade(), ZOP_OK);
        ExpectUpgraded(1, 0);
        EXPECT_EQ(GetFileAttributesW(installed_.c_str()) & FILE_ATTRIBUTE_READONLY, 0u) << isInUse;
    }
}

TEST_F(UpgradeTest, WithoutANewVersionNothingChanges) {
    EXPECT_EQ(UpgradeTo(nullptr), ZOP_E_INVALID_ARG);
    ExpectUpgraded(0, 0);
    EXPECT_EQ(UpgradeTo(L""), ZOP_E_INVALID_ARG);
    EXPECT_EQ(UpgradeTo(L"C:\\missing.sys"), ZOP_E_DRIVER_NOT_FOUND);
    WriteFileBytes(newFile_, new_ = "unversioned");
    EXPECT_PRED1(zotest::IsNoVersion, Upgrade());
    ExpectUpgraded(0, 0);
}

TEST_F(UpgradeTest, DoesNotInstallAMissingDriver) {
    DeleteFileW(installed_.c_str());
    EXPECT_EQ(Upgrade(), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(installed_));
}

TEST_F(UpgradeTest, ComparesWithTheFileBesideTheExecutableWithoutAService) {
    WriteFileBytes(newFile_, DriverOfVersion({0, 0, 0, 1}));  // older than that file
    ASSERT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_EQ(Upgrade(), ZOP_OK);
    EXPECT_EQ(upgraded_, 0u);
}

TEST_F(UpgradeTest, AFileInUseIsRenamedAndDeletedAtRestart) {
    const std::wstring beside = std::filesystem::path(installed_).parent_path().wstring();
    const struct {
        const char* name;
        std::wstring tmp;
        std::wstring stagingFolder;
        const wchar_t* extension;
    } rows[] = {{"temporary folder", tmp_, tmp_, L".sys"},
                {"temporary folder too long for the name", L"C:\\" + std::wstring(232, L't'), beside, L".old"},
                {"no temporary folder", L"C:\\" + std::wstring(300, L't'), beside, L".old"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        scopedTmp_.emplace(row.tmp);
        WriteFileBytes(installed_, old_);
        {
            const zo::OwnedFile inUse = zotest::Hold(installed_, FILE_SHARE_READ | FILE_SHARE_DELETE);
            EXPECT_EQ(Upgrade(), ZOP_OK);
        }
        ExpectUpgraded(1, 0);
        ExpectOldFileStaged(row.stagingFolder, row.extension);
    }
}

TEST_F(UpgradeTest, TheRenamedFileCannotBeReplacedUntilTheNewOneIsInPlace) {
    attackedFolder = tmp_;
    attackErrors.clear();
    copyErrors = {ERROR_SHARING_VIOLATION, ERROR_DISK_FULL};
    EXPECT_EQ(Upgrade(), ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL));
    attackedFolder.clear();
    EXPECT_EQ(attackErrors, std::vector<DWORD>{ERROR_SHARING_VIOLATION});
    ExpectUpgraded(0, 0);
}

TEST_F(UpgradeTest, NoOtherFileBecomesTheDriverWhenTheOldOneIsMovedBack) {
    for (const Swap when : {Swap::kAfterTheRename, Swap::kBeforeTheMoveBack}) {
        WriteFileBytes(installed_, old_);
        deletedAtRestart.clear();
        swap = when;
        copyErrors = {ERROR_SHARING_VIOLATION, ERROR_DISK_FULL};
        EXPECT_EQ(Upgrade(), ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL));
        EXPECT_EQ(swap, Swap::kNever) << "it was swapped";
        EXPECT_FALSE(std::filesystem::exists(installed_)) << static_cast<int>(when);
    }
}

TEST_F(UpgradeTest, ARunningDriverKeepsRunning) {
    WriteFileBytes(installed_, old_ = ReadFileBytes(zotest::SimulatorFile()));
    WriteFileBytes(newFile_, new_ = DriverOfVersion({9, 0, 0, 0}));
    ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
    EXPECT_EQ(Upgrade(), ZOP_OK);
    ExpectUpgraded(1, 0);
    EXPECT_EQ(zotest::DriverStatus().state, ZOP_DRIVER_RUNNING);
    EXPECT_EQ(zotest::DriverStatus().fileVersionMajor, 9u);
}

TEST_F(UpgradeTest, WithoutAPlaceForTheOldFileNothingChanges) {
    const std::wstring folder = (folder_ / std::wstring(249 - folder_.Path().wstring().size(), L'd')).wstring();
    WriteFileBytes(folder + L"\\d.sys", old_);
    zotest::SetImagePath(folder + L"\\d.sys");
    scopedTmp_.emplace(L"C:\\" + std::wstring(300, L't'));
    EXPECT_EQ(Upgrade(), kDoesNotFit);
    EXPECT_TRUE(ReadFileBytes(folder + L"\\d.sys") == old_);
}

TEST_F(UpgradeTest, EachFileOperationThatFailsLeavesTheOldFile) {
    constexpr int32_t kFull = ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL);
    constexpr int32_t kAsksDriver = ZOP_E_DRIVER_NOT_FOUND;  // which does not run here
    constexpr DWORD kDenied = ERROR_ACCESS_DENIED;
    constexpr DWORD kInUse = ERROR_SHARING_VIOLATION;
    constexpr DWORD kMapped = ERROR_USER_MAPPED_FILE;
    constexpr DWORD kOtherVolume = ERROR_NOT_SAME_DEVICE;
    const struct {
        const char* name;
        std::vector<DWORD> copyErrors;
        std::vector<DWORD> moveErrors;  // rename, mark for deletion, move back
        int32_t expected;
        bool asksDriver = false;
    } rows[] = {
        {"disk full", {ERROR_DISK_FULL}, {}, kFull},
        {"rename to another volume", {kDenied}, {kOtherVolume}, ZOP_STATUS_FROM_WIN32(kOtherVolume)},
        {"rename to a missing folder", {kInUse}, {ERROR_PATH_NOT_FOUND}, ZOP_E_DRIVER_NOT_FOUND},
        {"mapped, rename denied", {kMapped}, {kDenied}, kAsksDriver, true},
        {"denied, rename in use", {kDenied}, {kInUse}, kAsksDriver, true},
        {"denied, rename mapped", {kDenied}, {kMapped}, kAsksDriver, true},
        {"second copy on a full disk", {kInUse, ERROR_DISK_FULL}, {}, kFull},
        {"no mark for deletion", {kInUse, ERROR_INVALID_PARAMETER}, {0, kDenied}, ZOP_E_INVALID_ARG},
        {"second copy mapped", {kInUse, kMapped}, {}, kAsksDriver, true},
        {"not moved back", {kInUse, ERROR_DISK_FULL}, {0, 0, kInUse}, kFull},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        copyErrors = row.copyErrors;
        moveErrors = row.moveErrors;
        const zotest::DebugOutput output;
        EXPECT_EQ(Upgrade(), row.expected);
        EXPECT_TRUE(copyErrors.empty() && moveErrors.empty());
        EXPECT_EQ(zotest::AnyLineEndsWith(output.Strings(), "Starting SDK initialization\r\n"), row.asksDriver);
        if (row.moveErrors.size() < 3) {
            ExpectUpgraded(0, 0);
            EXPECT_TRUE(StagedFiles().empty());
        } else {
            EXPECT_FALSE(std::filesystem::exists(installed_)) << "it could not be moved back";
            ExpectOldFileStaged(tmp_, L".sys");
        }
    }
}

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
    const struct {
        const char* name;
        std::wstring tmp;
        std::wstring stagingFolder;
        const wchar_t* extension;
        bool wasEnabled;
    } rows[] = {{"temporary folder on the volume", tmp_, tmp_, L".sys", true},
                {"the same drive in lower case", L"c" + tmp_.substr(1), L"c" + tmp_.substr(1), L".sys", false},
                {"temporary folder on another volume", L"Z:\\", beside, L".old", true},
                {"no temporary folder", L"C:\\" + std::wstring(300, L't'), beside, L".old", false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        scopedTmp_.emplace(row.tmp);
        SetMaster(row.wasEnabled);
        WriteFileBytes(installed_, old_);
        const zotest::DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), ZOP_OK);
        ExpectUpgraded(1, 1);
        EXPECT_EQ(simulator_->State().masterEnabled, row.wasEnabled ? 1u : 0u);
        uint32_t version[3];
        EXPECT_EQ(ZoProtector_GetVersion(&version[0], &version[1], &version[2]), ZOP_OK) << "stays initialised";
        ASSERT_EQ(StagedFiles().size(), 1u);
        const std::wstring staged = row.stagingFolder + L"\\" + StagedFiles()[0].filename().wstring();
        EXPECT_TRUE(zotest::AnyLineEndsWith(
            output.Strings(), "[INFO ] ReplaceFileByDriver: '" + zo::Utf8FromWide(installed_) + "' <- '" +
                                  zo::Utf8FromWide(newFile_) + "' (moved old -> '" + zo::Utf8FromWide(staged) +
                                  "', flagged delete-on-reboot)\r\n"));
        ExpectOldFileStaged(row.stagingFolder[0] == L'c' ? tmp_ : row.stagingFolder, row.extension);
    }
}

TEST_F(UpgradeByDriverTest, EachStepThatFailsLeavesTheOldFileAndTheMasterSwitch) {
    constexpr uint32_t kDenied = 0xC0000022;
    constexpr uint32_t kSharing = 0xC0000043;
    const struct {
        const char* name;
        uint32_t code;
        uint32_t ntStatus;
        uint32_t skip;  // commands of that code that still work
        bool masterBefore;
        int32_t expected;
        uint32_t masterAfter;
    } rows[] = {
        {"handshake", ZOP_IOCTL_GET_VERSION, kDenied, 0, true, ZOP_E_ACCESS_DENIED, 1},
        {"reading the switch", ZOP_IOCTL_GET_MASTER_ENABLED, kDenied, 0, false, ZOP_OK, 1},
        {"switching off", ZOP_IOCTL_SET_MASTER_ENABLED, kDenied, 0, true, ZOP_E_ACCESS_DENIED, 1},
        {"replacing, denied", ZOP_IOCTL_REPLACE_FILE, kDenied, 0, true, ZOP_E_ACCESS_DENIED, 1},
        {"replacing, in use", ZOP_IOCTL_REPLACE_FILE, kSharing, 0, false, ZOP_E_FAILED, 0},
        {"switching on again", ZOP_IOCTL_SET_MASTER_ENABLED, kDenied, 1, true, ZOP_OK, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WriteFileBytes(installed_, old_);
        SetMaster(row.masterBefore);
        simulator_->AddFault({row.code, row.skip, 1, ZOSIM_FAULT_STATUS, row.ntStatus, 0, 0, 0, {}});
        const zotest::DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), row.expected);
        const uint32_t upgraded = row.expected == ZOP_OK ? 1 : 0;
        ExpectUpgraded(upgraded, upgraded);
        if (upgraded != 0) ExpectOldFileStaged(tmp_, L".sys");
        EXPECT_TRUE(StagedFiles().empty());
        EXPECT_EQ(simulator_->State().masterEnabled, row.masterAfter);
        EXPECT_EQ(simulator_->State().faultsPending, 0u);
        const std::string line = std::string("[ERROR] ReplaceFileByDriver: IOCTL failed 0x8000000") +
                                 (row.ntStatus == kSharing ? "9" : "4") + " for '" + zo::Utf8FromWide(installed_) +
                                 "'\r\n";
        EXPECT_EQ(zotest::AnyLineEndsWith(output.Strings(), line), row.code == ZOP_IOCTL_REPLACE_FILE);
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
