#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "debug_output.h"
#include "driver_set_up.h"
#include "import_hook.h"
#include "log_reader.h"

namespace {

using zotest::DriverOfVersion;
using zotest::ReadFileBytes;
using zotest::WriteFileBytes;

constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingRenames[] = L"PendingFileRenameOperations";

zo::OwnedFile Hold(const std::wstring& file, DWORD access, DWORD share) {
    zo::OwnedFile handle(CreateFileW(file.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(handle) << GetLastError();
    return handle;
}

// The multi-string that lists what the system deletes when it starts next.
std::wstring PendingDeletions() {
    std::wstring text(16384, L'\0');
    DWORD size = static_cast<DWORD>(text.size() * 2);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, RRF_RT_REG_MULTI_SZ, nullptr, text.data(),
                     &size) != ERROR_SUCCESS) {
        return {};
    }
    return text.substr(0, size / 2);
}

// An installed driver file of our own behind the service's image path, and a temporary folder of our own.
class UpgradeTest : public zotest::BareSystemTest {
  protected:
    static void SetUpTestSuite() { ZoProtector_Initialize(); }  // has the log chosen its folder before TMP changes

    void SetUp() override {
        BareSystemTest::SetUp();
        pendingBefore_ = PendingDeletions();
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
        if (pendingBefore_.empty()) {
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
        } else {
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, REG_MULTI_SZ, pendingBefore_.data(),
                            static_cast<DWORD>(pendingBefore_.size() * 2));
        }
    }

    void UseTmp(const std::wstring& folder) {
        scopedTmp_.reset();
        scopedTmp_.emplace(folder);
    }

    int32_t Upgrade() {
        upgraded_ = replacedByDriver_ = 77;
        return ZoProtector_UpgradeDriver(newFile_.c_str(), &upgraded_, &replacedByDriver_);
    }

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
        const std::wstring behindDriveLetter = files[0].wstring().substr(1);
        EXPECT_NE(PendingDeletions().find(behindDriveLetter), std::wstring::npos);
    }

    const zotest::TempFolder folder_;
    const std::wstring installed_ = (folder_ / L"installed" / L"driver.sys").wstring();
    const std::wstring newFile_ = (folder_ / L"new.sys").wstring();
    const std::wstring tmp_ = (folder_ / L"tmp").wstring();
    std::string old_ = DriverOfVersion({1, 2, 3, 4});
    std::string new_ = DriverOfVersion({1, 2, 3, 5});
    uint32_t upgraded_ = 0;
    uint32_t replacedByDriver_ = 0;

  private:
    std::optional<zotest::ScopedTmp> scopedTmp_;
    std::wstring pendingBefore_;
};

TEST_F(UpgradeTest, OnlyAHigherVersionReplacesTheFile) {
    const struct {
        std::string oldFile;
        std::string newFile;
        uint32_t upgraded;
    } rows[] = {
        {DriverOfVersion({1, 2, 3, 4}) + "old", DriverOfVersion({1, 2, 3, 4}) + "new", 0},
        {DriverOfVersion({1, 2, 3, 4}), DriverOfVersion({1, 2, 3, 3}), 0},
        {DriverOfVersion({2, 0, 0, 0}), DriverOfVersion({1, 65535, 65535, 65535}), 0},
        {DriverOfVersion({1, 2, 3, 4}), DriverOfVersion({1, 2, 3, 5}), 1},
        {DriverOfVersion({1, 2, 3, 65535}), DriverOfVersion({1, 2, 4, 0}), 1},
        {DriverOfVersion({1, 2, 65535, 0}), DriverOfVersion({1, 3, 0, 0}), 1},
        {DriverOfVersion({32767, 65535, 0, 0}), DriverOfVersion({65535, 0, 0, 0}), 1},
        {"unversioned", DriverOfVersion({0, 0, 0, 1}), 1},
        {"unversioned", DriverOfVersion({0, 0, 0, 0}), 0},
    };
    for (const auto& row : rows) {
        WriteFileBytes(installed_, old_ = row.oldFile);
        WriteFileBytes(newFile_, new_ = row.newFile);
        EXPECT_EQ(Upgrade(), ZOP_OK);
        ExpectUpgraded(row.upgraded, 0);
        EXPECT_TRUE(StagedFiles().empty());
    }
    WriteFileBytes(newFile_, DriverOfVersion({65535, 0, 0, 1}));
    EXPECT_EQ(ZoProtector_UpgradeDriver(newFile_.c_str(), nullptr, nullptr), ZOP_OK) << "the outputs are optional";
    EXPECT_TRUE(ReadFileBytes(installed_) == ReadFileBytes(newFile_));
}

TEST_F(UpgradeTest, WhatIsMissingOrUnreadableChangesNothing) {
    WriteFileBytes(newFile_, new_ = "unversioned");
    EXPECT_TRUE(Upgrade() < 0);
    ExpectUpgraded(0, 0);
    for (const wchar_t* path : {static_cast<const wchar_t*>(nullptr), L""}) {
        upgraded_ = replacedByDriver_ = 77;
        EXPECT_EQ(ZoProtector_UpgradeDriver(path, &upgraded_, &replacedByDriver_), ZOP_E_INVALID_ARG);
        ExpectUpgraded(0, 0);
    }
    DeleteFileW(newFile_.c_str());
    EXPECT_EQ(Upgrade(), ZOP_E_DRIVER_NOT_FOUND);
    WriteFileBytes(newFile_, new_ = DriverOfVersion({9, 9, 9, 9}));
    DeleteFileW(installed_.c_str());
    EXPECT_EQ(Upgrade(), ZOP_E_DRIVER_NOT_FOUND) << "an upgrade does not install";
    EXPECT_FALSE(std::filesystem::exists(installed_));
    WriteFileBytes(newFile_, DriverOfVersion({0, 0, 0, 1}));  // which replaces nothing
    ASSERT_EQ(ZoProtector_UninstallDriver(), ZOP_OK);
    EXPECT_EQ(Upgrade(), ZOP_OK) << "without a service the file beside the executable counts";
}

TEST_F(UpgradeTest, AFileInUseIsRenamedAndDeletedAtRestart) {
    const std::wstring beside = std::filesystem::path(installed_).parent_path().wstring();
    const struct {
        std::wstring tmp;
        std::wstring stagingFolder;
        const wchar_t* extension;
    } rows[] = {{tmp_, tmp_, L".sys"},
                {L"C:\\" + std::wstring(232, L't'), beside, L".old"},   // the name does not fit
                {L"C:\\" + std::wstring(300, L't'), beside, L".old"}};  // not even the folder
    for (const auto& row : rows) {
        UseTmp(row.tmp);
        WriteFileBytes(installed_, old_);
        {
            const zo::OwnedFile inUse = Hold(installed_, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
            EXPECT_EQ(Upgrade(), ZOP_OK);
        }
        ExpectUpgraded(1, 0);
        ExpectOldFileStaged(row.stagingFolder, row.extension);
        for (const auto& file : StagedFiles())
            std::filesystem::remove(file);
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

TEST_F(UpgradeTest, AStagingNameThatFitsNowhereChangesNothing) {
    const std::wstring folder = (folder_ / std::wstring(249 - folder_.Path().wstring().size(), L'd')).wstring();
    WriteFileBytes(folder + L"\\d.sys", old_);
    zotest::SetImagePath(folder + L"\\d.sys");
    UseTmp(L"C:\\" + std::wstring(300, L't'));
    EXPECT_EQ(Upgrade(), kDoesNotFit);
    EXPECT_TRUE(ReadFileBytes(folder + L"\\d.sys") == old_);
}

TEST_F(UpgradeTest, ATemporaryFolderOnAnotherVolumeEndsTheUpgradeOfAFileInUse) {
    const std::wstring otherVolume = L"Z:\\dev\\shm";  // Linux's memory file system, as Wine's drives show it
    if (!std::filesystem::exists(otherVolume)) GTEST_SKIP() << "no second file system here";
    UseTmp(otherVolume);
    {
        const zo::OwnedFile inUse = Hold(installed_, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
        EXPECT_EQ(Upgrade(), ZOP_STATUS_FROM_WIN32(ERROR_NOT_SAME_DEVICE));
    }
    ExpectUpgraded(0, 0);
}

// What the library's file operations answer, call by call; 0 or nothing is the real call.
std::vector<DWORD> copyErrors;
std::vector<DWORD> moveErrors;

bool IsScripted(std::vector<DWORD>& errors) {
    if (errors.empty()) return false;
    const DWORD error = errors.front();
    errors.erase(errors.begin());
    SetLastError(error);
    return error != 0;
}

BOOL WINAPI ScriptedCopy(const wchar_t* from, const wchar_t* to, BOOL failIfThere) {
    return IsScripted(copyErrors) ? FALSE : CopyFileW(from, to, failIfThere);
}

BOOL WINAPI ScriptedMove(const wchar_t* from, const wchar_t* to, DWORD flags) {
    return IsScripted(moveErrors) ? FALSE : MoveFileExW(from, to, flags);
}

TEST_F(UpgradeTest, EachFileOperationThatFailsLeavesTheOldFile) {
    const struct {
        std::vector<DWORD> copyErrors;
        std::vector<DWORD> moveErrors;  // rename, mark for deletion, move back
        int32_t expected;
        bool asksDriver;  // which does not run here
        bool isMovedBack;
    } rows[] = {
        {{ERROR_DISK_FULL}, {}, ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL), false, true},
        {{ERROR_ACCESS_DENIED}, {ERROR_NOT_SAME_DEVICE}, ZOP_STATUS_FROM_WIN32(ERROR_NOT_SAME_DEVICE), false, true},
        {{ERROR_SHARING_VIOLATION}, {ERROR_PATH_NOT_FOUND}, ZOP_E_DRIVER_NOT_FOUND, false, true},
        {{ERROR_USER_MAPPED_FILE}, {ERROR_ACCESS_DENIED}, ZOP_E_DRIVER_NOT_FOUND, true, true},
        {{ERROR_ACCESS_DENIED}, {ERROR_SHARING_VIOLATION}, ZOP_E_DRIVER_NOT_FOUND, true, true},
        {{ERROR_ACCESS_DENIED}, {ERROR_USER_MAPPED_FILE}, ZOP_E_DRIVER_NOT_FOUND, true, true},
        {{ERROR_SHARING_VIOLATION, ERROR_DISK_FULL}, {}, ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL), false, true},
        {{ERROR_SHARING_VIOLATION, ERROR_INVALID_PARAMETER}, {0, 5}, ZOP_E_INVALID_ARG, false, true},
        {{ERROR_SHARING_VIOLATION, ERROR_USER_MAPPED_FILE}, {}, ZOP_E_DRIVER_NOT_FOUND, true, true},
        {{ERROR_SHARING_VIOLATION, ERROR_DISK_FULL},
         {0, 0, ERROR_SHARING_VIOLATION},
         ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL),
         false,
         false},
    };
    const zotest::ImportHook copy("CopyFileW", ScriptedCopy);
    const zotest::ImportHook move("MoveFileExW", ScriptedMove);
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        copyErrors = row.copyErrors;
        moveErrors = row.moveErrors;
        const zotest::DebugOutput output;
        EXPECT_EQ(Upgrade(), row.expected);
        EXPECT_TRUE(copyErrors.empty() && moveErrors.empty());
        EXPECT_EQ(zotest::AnyLineEndsWith(output.Strings(), "Starting SDK initialization\r\n"), row.asksDriver);
        if (row.isMovedBack) {
            ExpectUpgraded(0, 0);
            EXPECT_TRUE(StagedFiles().empty());
        } else {
            EXPECT_FALSE(std::filesystem::exists(installed_));
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

    int32_t UpgradeHeldFile() {
        held_ = Hold(installed_, GENERIC_READ, FILE_SHARE_READ);
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
        std::wstring tmp;
        std::wstring stagingFolder;
        const wchar_t* extension;
        bool wasEnabled;
    } rows[] = {{tmp_, tmp_, L".sys", true},
                {L"c" + tmp_.substr(1), tmp_, L".sys", false},
                {L"Z:\\", beside, L".old", true},
                {L"C:\\" + std::wstring(300, L't'), beside, L".old", false}};
    for (const auto& row : rows) {
        UseTmp(row.tmp);
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        ASSERT_EQ(ZoProtector_SetMasterEnabled(row.wasEnabled), ZOP_OK);
        ASSERT_EQ(ZoProtector_Uninitialize(), ZOP_OK);
        WriteFileBytes(installed_, old_);
        const zotest::DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), ZOP_OK);
        ExpectUpgraded(1, 1);
        ExpectOldFileStaged(row.stagingFolder, row.extension);
        EXPECT_EQ(simulator_->State().masterEnabled, row.wasEnabled ? 1u : 0u);
        const auto staged = StagedFiles();
        for (const auto& file : staged)
            std::filesystem::remove(file);
        uint32_t version[3];
        EXPECT_EQ(ZoProtector_GetVersion(&version[0], &version[1], &version[2]), ZOP_OK) << "stays initialised";
        ASSERT_EQ(staged.size(), 1u);
        const std::filesystem::path named =
            row.tmp[0] == L'c' ? std::filesystem::path(row.tmp) / staged[0].filename() : staged[0];
        const auto utf8 = [](const std::filesystem::path& path) {
            const auto text = path.u8string();
            return std::string(text.begin(), text.end());
        };
        EXPECT_TRUE(zotest::AnyLineEndsWith(output.Strings(), "[INFO ] ReplaceFileByDriver: '" + utf8(installed_) +
                                                                  "' <- '" + utf8(newFile_) + "' (moved old -> '" +
                                                                  utf8(named) + "', flagged delete-on-reboot)\r\n"));
    }
}

TEST_F(UpgradeByDriverTest, EachStepThatFailsLeavesTheOldFileAndTheMasterSwitch) {
    constexpr uint32_t kDenied = 0xC0000022;
    constexpr uint32_t kSharing = 0xC0000043;
    const struct {
        const char* what;
        uint32_t code;
        uint32_t ntStatus;
        uint32_t skip;  // commands of that code that still work
        uint32_t masterBefore;
        int32_t expected;
        uint32_t upgraded;
        uint32_t masterAfter;
    } rows[] = {
        {"handshake", ZOP_IOCTL_GET_VERSION, kDenied, 0, 1, ZOP_E_ACCESS_DENIED, 0, 1},
        {"reading the switch", ZOP_IOCTL_GET_MASTER_ENABLED, kDenied, 0, 0, ZOP_OK, 1, 1},
        {"switching off", ZOP_IOCTL_SET_MASTER_ENABLED, kDenied, 0, 1, ZOP_E_ACCESS_DENIED, 0, 1},
        {"replacing", ZOP_IOCTL_REPLACE_FILE, kDenied, 0, 1, ZOP_E_ACCESS_DENIED, 0, 1},
        {"replacing", ZOP_IOCTL_REPLACE_FILE, kSharing, 0, 0, ZOP_E_FAILED, 0, 0},
        {"switching on again", ZOP_IOCTL_SET_MASTER_ENABLED, kDenied, 1, 1, ZOP_OK, 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        WriteFileBytes(installed_, old_);
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        ASSERT_EQ(ZoProtector_SetMasterEnabled(static_cast<int32_t>(row.masterBefore)), ZOP_OK);
        ASSERT_EQ(ZoProtector_Uninitialize(), ZOP_OK);
        ZoSimFault fault{};
        fault.code = row.code;
        fault.skip = row.skip;
        fault.times = 1;
        fault.flags = ZOSIM_FAULT_STATUS;
        fault.status = row.ntStatus;
        simulator_->AddFault(fault);
        const zotest::DebugOutput output;
        EXPECT_EQ(UpgradeHeldFile(), row.expected);
        ExpectUpgraded(row.upgraded, row.upgraded);
        EXPECT_EQ(StagedFiles().size(), row.upgraded);
        for (const auto& file : StagedFiles())
            std::filesystem::remove(file);
        EXPECT_EQ(simulator_->State().masterEnabled, row.masterAfter);
        EXPECT_EQ(simulator_->State().faultsPending, 0u);
        char line[64];
        snprintf(line, sizeof(line), "ReplaceFileByDriver: IOCTL failed 0x%08X for '",
                 static_cast<unsigned>(row.expected));
        bool told = false;
        for (const std::string& text : output.Strings())
            told = told || text.find(line) != std::string::npos;
        EXPECT_EQ(told, row.code == ZOP_IOCTL_REPLACE_FILE);
        simulator_->ClearFaults();
    }
}

TEST_F(UpgradeByDriverTest, AStagingNameThatDoesNotFitPutsTheMasterSwitchBack) {
    UseTmp(L"C:\\" + std::wstring(232, L't'));
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
