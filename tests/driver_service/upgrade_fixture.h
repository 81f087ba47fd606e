#pragma once

// An installed driver file of the test's own, and file operations of the library that fail as a script says.

#include <optional>
#include <string>
#include <vector>

#include "driver_set_up.h"
#include "import_hook.h"

namespace upgradetest {

using zotest::DriverOfVersion;
using zotest::ReadFileBytes;
using zotest::WriteFileBytes;

inline constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);

// The results of the library's next file operations; 0 means that the call is really made, as it is after the last one.
// Files that are marked for deletion at restart are only remembered.
inline std::vector<DWORD> copyErrors;
inline std::vector<DWORD> moveErrors;
inline std::wstring deletedAtRestart;

inline bool areAllDenied;

inline bool IsScripted(std::vector<DWORD>& errors) {
    if (areAllDenied) SetLastError(ERROR_ACCESS_DENIED);
    if (areAllDenied) return true;
    if (errors.empty()) return false;
    const DWORD error = errors.front();
    errors.erase(errors.begin());
    SetLastError(error);
    return error != 0;
}

// A folder in which somebody tries to delete every file while the library copies.
inline std::filesystem::path attackedFolder;
inline std::vector<DWORD> attackErrors;

inline void DeleteFilesOf(const std::filesystem::path& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        attackErrors.push_back(DeleteFileW(entry.path().c_str()) ? ERROR_SUCCESS : GetLastError());
}

inline BOOL WINAPI ScriptedCopy(const wchar_t* from, const wchar_t* to, BOOL failIfThere) {
    if (!attackedFolder.empty()) DeleteFilesOf(attackedFolder);
    return IsScripted(copyErrors) ? FALSE : CopyFileW(from, to, failIfThere);
}

// When somebody puts another file in the place of the renamed one.
enum class Swap { kNever, kAfterTheRename, kBeforeTheMoveBack };
inline Swap swap = Swap::kNever;
inline constexpr char kForeign[] = "foreign";

inline void SwapFile(const wchar_t* path) {
    std::filesystem::rename(path, std::filesystem::path(path).replace_extension("aside"));
    WriteFileBytes(path, kForeign);
    swap = Swap::kNever;
}

inline BOOL WINAPI ScriptedMove(const wchar_t* from, const wchar_t* to, DWORD flags) {
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

}  // namespace upgradetest
