// Replacing the installed driver file by file operations alone.

#include "debug_output.h"
#include "log_reader.h"
#include "upgrade_fixture.h"

namespace zotest {
namespace {

TEST_F(UpgradeTest, OnlyAHigherVersionReplacesTheFile) {
    using Version = std::array<std::uint16_t, 4>;
    const Rows<std::string, Version, uint32_t> rows = {
        {"same version", DriverOfVersion({1, 2, 3, 4}) + "old", {1, 2, 3, 4}, 0},
        {"lower revision", DriverOfVersion({1, 2, 3, 4}), {1, 2, 3, 3}, 0},
        {"lower major", DriverOfVersion({3, 0, 0, 0}), {2, 65535, 65535, 65535}, 0},
        {"higher build", DriverOfVersion({1, 2, 3, 65535}), {1, 2, 4, 0}, 1},
        {"higher minor", DriverOfVersion({1, 2, 65535, 0}), {1, 3, 0, 0}, 1},
        {"higher major", DriverOfVersion({32767, 65535, 0, 0}), {65535, 0, 0, 0}, 1},
        {"over a file without a version", "unversioned", {0, 0, 0, 1}, 1},
        {"version 0 over a file without one", "unversioned", {0, 0, 0, 0}, 0},
    };
    for (const auto& [name, oldFile, newVersion, upgraded] : rows) {
        SCOPED_TRACE(name);
        WriteFileBytes(installed_, old_ = oldFile);
        WriteFileBytes(newFile_, new_ = DriverOfVersion(newVersion));
        EXPECT_EQ(Upgrade(), ZOP_OK);
        ExpectUpgraded(upgraded, 0);
        EXPECT_TRUE(StagedFiles().empty());
    }
}

TEST_F(UpgradeTest, WithoutANewVersionNothingChanges) {
    EXPECT_EQ(UpgradeTo(nullptr), ZOP_E_INVALID_ARG);
    ExpectUpgraded(0, 0);
    EXPECT_EQ(UpgradeTo(L""), ZOP_E_INVALID_ARG);
    EXPECT_EQ(UpgradeTo(L"C:\\missing.sys"), ZOP_E_DRIVER_NOT_FOUND);
    WriteFileBytes(newFile_, new_ = "unversioned");
    EXPECT_PRED1(IsNoVersion, Upgrade());
    ExpectUpgraded(0, 0);
}

TEST_F(UpgradeTest, DoesNotInstallAMissingDriver) {
    DeleteFileW(installed_.c_str());
    EXPECT_EQ(Upgrade(), ZOP_E_DRIVER_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(installed_));
}

TEST_F(UpgradeTest, AFileInUseIsRenamedAndDeletedAtRestart) {
    const Rows<std::wstring, std::wstring, const wchar_t*> rows = {
        {"temporary folder", tmp_, tmp_, L".sys"},
        {"temporary folder too long for the name", L"C:\\" + std::wstring(232, L't'), beside_, L".old"},
        {"no temporary folder", L"C:\\" + std::wstring(300, L't'), beside_, L".old"}};
    for (const auto& [name, tmp, stagingFolder, extension] : rows) {
        SCOPED_TRACE(name);
        scopedTmp_.emplace(tmp);
        WriteFileBytes(installed_, old_);
        {
            const zo::OwnedFile inUse = Hold(installed_, FILE_SHARE_READ | FILE_SHARE_DELETE);
            EXPECT_EQ(Upgrade(), ZOP_OK);
        }
        ExpectUpgraded(1, 0);
        ExpectOldFileStaged(stagingFolder, extension);
    }
}

TEST_F(UpgradeTest, TheRenamedFileCannotBeReplacedUntilTheNewOneIsInPlace) {
    std::vector<DWORD> errors;
    beforeCopy_ = [&] {
        for (const auto& staged : std::filesystem::directory_iterator(tmp_))
            errors.push_back(DeleteFileW(staged.path().c_str()) ? ERROR_SUCCESS : GetLastError());
    };
    copyErrors_ = {ERROR_SHARING_VIOLATION, ERROR_DISK_FULL};
    EXPECT_EQ(Upgrade(), ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(errors, std::vector<DWORD>{ERROR_SHARING_VIOLATION});
    ExpectUpgraded(0, 0);
}

TEST_F(UpgradeTest, NoOtherFileBecomesTheDriverWhenTheOldOneIsMovedBack) {
    for (auto* moment : {&afterRename_, &beforeMoveBack_}) {
        WriteFileBytes(installed_, old_);
        *moment = [&](const wchar_t* path) {
            std::filesystem::rename(path, folder_ / L"aside");
            WriteFileBytes(path, "foreign");
        };
        copyErrors_ = {ERROR_SHARING_VIOLATION, ERROR_DISK_FULL};
        EXPECT_EQ(Upgrade(), ZOP_STATUS_FROM_WIN32(ERROR_DISK_FULL));
        *moment = [](auto) {};
        EXPECT_TRUE(std::filesystem::remove(folder_ / L"aside")) << "it was swapped";
        EXPECT_FALSE(std::filesystem::exists(installed_));
    }
}

TEST_F(UpgradeTest, WithoutAPlaceForTheOldFileNothingChanges) {
    const std::wstring folder = (folder_ / std::wstring(249 - folder_.Path().wstring().size(), L'd')).wstring();
    WriteFileBytes(folder + L"\\d.sys", old_);
    SetImagePath(folder + L"\\d.sys");
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
    const Rows<std::vector<DWORD>, std::vector<DWORD>, int32_t, bool> rows = {
        {"disk full", {ERROR_DISK_FULL}, {}, kFull, false},
        {"rename to another volume", {kDenied}, {kOtherVolume}, ZOP_STATUS_FROM_WIN32(kOtherVolume), false},
        {"rename to a missing folder", {kInUse}, {ERROR_PATH_NOT_FOUND}, ZOP_E_DRIVER_NOT_FOUND, false},
        {"mapped, rename denied", {kMapped}, {kDenied}, kAsksDriver, true},
        {"denied, rename in use", {kDenied}, {kInUse}, kAsksDriver, true},
        {"denied, rename mapped", {kDenied}, {kMapped}, kAsksDriver, true},
        {"second copy on a full disk", {kInUse, ERROR_DISK_FULL}, {}, kFull, false},
        {"no mark for deletion", {kInUse, ERROR_INVALID_PARAMETER}, {0, kDenied}, ZOP_E_INVALID_ARG, false},
        {"second copy mapped", {kInUse, kMapped}, {}, kAsksDriver, true},
        {"not moved back", {kInUse, ERROR_DISK_FULL}, {0, 0, kInUse}, kFull, false},
    };
    for (const auto& [name, copies, moves, expected, asksDriver] : rows) {
        SCOPED_TRACE(name);
        copyErrors_ = copies;
        moveErrors_ = moves;
        const DebugOutput output;
        EXPECT_EQ(Upgrade(), expected);
        EXPECT_TRUE(copyErrors_.empty() && moveErrors_.empty());
        EXPECT_EQ(AnyLineEndsWith(output.Strings(), "Starting SDK initialization\r\n"), asksDriver);
        if (moves.size() < 3) {
            ExpectUpgraded(0, 0);
            EXPECT_TRUE(StagedFiles().empty());
        } else {
            EXPECT_FALSE(std::filesystem::exists(installed_)) << "it could not be moved back";
            ExpectOldFileStaged(tmp_, L".sys");
        }
    }
}

}  // namespace
}  // namespace zotest
