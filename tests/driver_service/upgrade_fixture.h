#pragma once

// An installed driver file of the test's own, and file operations of the library that fail as a script says.

#include <functional>
#include <optional>

#include "driver_set_up.h"

namespace zotest {

inline constexpr int32_t kDoesNotFit = ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);

// An installed driver file of our own behind the service's image path, and a temporary folder of our own.
class UpgradeTest : public InstalledDriverTest {
  protected:
    static void SetUpTestSuite() { ZoProtector_Initialize(); }  // has the log chosen its folder before TMP changes

    void SetUp() override {
        InstalledDriverTest::SetUp();
        std::filesystem::create_directories(tmp_);
        SetImagePath(L"\\??\\" + installed_);
        WriteFileBytes(installed_, old_);
        WriteFileBytes(newFile_, new_);
        scopedTmp_.emplace(tmp_);
    }

    void TearDown() override {
        scopedTmp_.reset();
        InstalledDriverTest::TearDown();
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

    // Files in the temporary folder and next to the installed file that were not put there by the test.
    std::vector<std::filesystem::path> StagedFiles() const {
        std::vector<std::filesystem::path> files;
        for (const auto& folder : {tmp_, beside_}) {
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
        EXPECT_EQ(deletedAtRestart_.substr(1), files[0].wstring().substr(1)) << "but for the drive's letter case";
        deletedAtRestart_.clear();
        std::filesystem::remove(files[0]);
    }

    const TempFolder folder_;
    const std::wstring beside_ = (folder_ / L"installed").wstring();
    const std::wstring installed_ = beside_ + L"\\driver.sys";
    const std::wstring newFile_ = (folder_ / L"new.sys").wstring();
    const std::wstring tmp_ = (folder_ / L"tmp").wstring();
    std::string old_ = DriverOfVersion({1, 2, 3, 4});
    std::string new_ = DriverOfVersion({1, 2, 3, 5});
    uint32_t upgraded_ = 0;
    uint32_t replacedByDriver_ = 0;
    std::optional<ScopedTmp> scopedTmp_;

    // The results of the library's next file operations; 0 means that the call is really made, as it is after the last
    // one. Files that are marked for deletion at restart are only remembered.
    std::vector<DWORD> copyErrors_;
    std::vector<DWORD> moveErrors_;
    std::wstring deletedAtRestart_;
    // What somebody else does meanwhile, with the path of the renamed file.
    std::function<void()> beforeCopy_ = [] {};
    std::function<void(const wchar_t*)> afterRename_ = [](auto) {};
    std::function<void(const wchar_t*)> beforeMoveBack_ = [](auto) {};

  private:
    static bool Fails(std::vector<DWORD>& errors) {
        if (errors.empty()) return false;
        const DWORD error = errors.front();
        errors.erase(errors.begin());
        SetLastError(error);
        return error != 0;
    }

    BOOL Move(const wchar_t* from, const wchar_t* to, DWORD flags) {
        EXPECT_EQ(flags & MOVEFILE_COPY_ALLOWED, 0u) << "on another volume the old file must not be copied";
        if (Fails(moveErrors_)) return FALSE;
        if (flags == MOVEFILE_DELAY_UNTIL_REBOOT) {
            EXPECT_EQ(to, nullptr);
            deletedAtRestart_ = from;
            return TRUE;
        }
        if (to == installed_) beforeMoveBack_(from);
        const BOOL done = MoveFileExW(from, to, flags);
        if (from == installed_) afterRename_(to);
        return done;
    }

    const ImportHook copy_{"CopyFileW", CopyFileW, [this](auto... parameters) {
                               beforeCopy_();
                               return Fails(copyErrors_) ? FALSE : CopyFileW(parameters...);
                           }};
    const ImportHook move_{"MoveFileExW", MoveFileExW, [this](auto... parameters) { return Move(parameters...); }};
};

}  // namespace zotest
