// A dump folder that denies access, staged through the real simulator driver. Run by staging_test.sh, which makes the
// folders and links that Windows calls cannot make under Wine, starts the driver and takes the rights away.

#include <functional>
#include <optional>

#include "folder_link.h"
#include "import_hook.h"
#include "installed_driver.h"
#include "reporter_fixture.h"
#include "zoprotector.h"

namespace zocrashtest {
namespace {

const std::filesystem::path kWork = L"C:\\zo_staging_test";
const std::string kDenied = "C:\\zo_staging_test\\denied";

class Staging : public ReporterTest {
  protected:
    Staging() {
        config_.minidumpDir = L"C:\\zo_staging_test\\denied";
        Configure();
        api_.networkOk();
        onDelete = nullptr;
        onCopy = nullptr;
    }

    // One of the temporary folders that the script has prepared, with a staging folder that an earlier run left.
    void UseTemporary(const std::string& name) {
        temporary_.emplace((kWork / name).wstring());
        staged_ = kWork / name / "ZoProtector" / "Minidump";
        where_ = staged_.string();
        ASSERT_TRUE(std::filesystem::exists(staged_));
    }
    void OpenDriver() { ASSERT_EQ(ZOTEST_FUNCTION(library_, ZoProtector_Initialize)(), 0); }

    // The Win32 error of renaming a folder, 0 when somebody else could have done it.
    static std::uint32_t ErrorOfMoving(const std::filesystem::path& folder) {
        return MoveFileExW(folder.c_str(), (kWork / "moved").c_str(), 0) ? 0 : GetLastError();
    }

    static BOOL WINAPI NoteDelete(const wchar_t* path) {
        if (onDelete) onDelete(std::filesystem::path(path).filename().string());
        return DeleteFileW(path);
    }
    static BOOL WINAPI NoteControl(HANDLE device, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                                   DWORD* returned, OVERLAPPED* overlapped) {
        if (code == ZOP_IOCTL_COPY_DIRECTORY && onCopy) onCopy();
        return DeviceIoControl(device, code, in, inSize, out, outSize, returned, overlapped);
    }

    static inline std::function<void(const std::string& file)> onDelete;
    static inline std::function<void()> onCopy;
    std::optional<zotest::ScopedTmp> temporary_;
    std::filesystem::path staged_;
    std::string where_;
};

TEST_F(Staging, FailsWithTheStatusOfTheCopy) {
    UseTemporary("linked");
    EXPECT_EQ(Run(), (Outcome{.status = 0x80000001}));  // ZOP_E_NOT_INITIALIZED
    EXPECT_EQ(TakeLog(), (Strings{"0 Minidump dir: " + kDenied,
                                  "1 Access denied to " + kDenied + "; staging via driver to " + where_,
                                  "2 Driver-side copy failed: 0x80000001 (files=0, dirs=0, skipped=0)"}));
    EXPECT_FALSE(std::filesystem::exists(staged_ / "old"));
}

TEST_F(Staging, LeavesALinkInTheFolderAndWhatIsBehindIt) {
    UseTemporary("linked");
    ASSERT_EQ(GetFileAttributesW((staged_ / "link").c_str()), 0x410u);
    OpenDriver();
    // Under Wine the link itself cannot be removed; the driver's copy is gone all the same.
    EXPECT_EQ(Run(), kQueryFailed);
    EXPECT_EQ(TakeLog().back(), "1 Failed to remove staged dir " + where_ + ": 145");
    EXPECT_FALSE(std::filesystem::exists(staged_ / "a.dmp"));
    EXPECT_EQ(zotest::ReadFileBytes(kWork / "victim" / "precious"), "precious");
}

TEST_F(Staging, NeverEntersAFolderThatBecomesALinkHalfWay) {
    UseTemporary("swapped");
    zotest::WriteFileBytes(staged_ / "old" / "sibling", "");
    const zotest::ImportHook hook("DeleteFileW", NoteDelete);
    onDelete = [&](const std::string& file) {
        if (file != "sibling") return;
        std::filesystem::rename(staged_ / "old" / "deep", kWork / "aside");
        zotest::LinkFolder(kWork / "victim", staged_ / "old" / "deep");
    };
    EXPECT_EQ(Run().status, 0x80000001);
    EXPECT_TRUE(std::filesystem::exists(kWork / "aside" / "file"));  // it was swapped
    EXPECT_EQ(zotest::ReadFileBytes(kWork / "victim" / "precious"), "precious");
}

TEST_F(Staging, HoldsEachFolderWhileItIsEmptied) {
    UseTemporary("held");
    const zotest::ImportHook hook("DeleteFileW", NoteDelete);
    std::vector<std::uint32_t> errors;
    onDelete = [&](const std::string& file) {
        if (file != "file") return;
        for (const char* folder : {"old/deep", "old", ".", ".."})
            errors.push_back(ErrorOfMoving((staged_ / folder).lexically_normal()));
    };
    EXPECT_EQ(Run().status, 0x80000001);
    EXPECT_EQ(errors, std::vector<std::uint32_t>(4, ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(std::filesystem::exists(staged_));
}

TEST_F(Staging, HoldsTheFolderFromBeforeTheCopyUntilItsDumpsAreDealtWith) {
    UseTemporary("tmp");
    OpenDriver();
    const zotest::ImportHook hook("DeviceIoControl", NoteControl);
    std::vector<std::uint32_t> errors;
    const auto tryToMove = [&] {
        for (const std::filesystem::path& folder : {staged_, staged_.parent_path()})
            errors.push_back(ErrorOfMoving(folder));
    };
    onCopy = tryToMove;
    onEvent_ = [&](const std::string& event) {
        if (event == "document") tryToMove();
    };
    EXPECT_EQ(Run(), kQueryFailed);
    EXPECT_EQ(errors, std::vector<std::uint32_t>(4, ERROR_SHARING_VIOLATION));
    // Removed are the dump, the folder in the folder with its file, and the staging folder.
    EXPECT_EQ(
        TakeLog(),
        (Strings{"0 Minidump dir: " + kDenied, "1 Access denied to " + kDenied + "; staging via driver to " + where_,
                 "0 Staged minidumps: files=2, dirs=1, skipped=0; using " + where_ + " for the rest of this run",
                 "0 Found 1 new minidump(s)", "0 Dump " + where_ + "\\a.dmp matched=[ZoProtector] upload=true",
                 "0 Removed staged dir " + where_ + " (entries cleared: 4)"}));
    EXPECT_FALSE(std::filesystem::exists(staged_));
}

TEST_F(Staging, WorksForZoctlWhichOpensTheChannelByItself) {
    const auto list =
        zotest::RunChild((zotest::ProgramFolder() / "zoctl.exe").wstring(),
                         {L"crash", L"list", L"--dumps", config_.minidumpDir, L"--record", record_.wstring()});
    EXPECT_EQ(list.exitCode, 0u) << list.err;
    EXPECT_NE(list.out.find("a.dmp"), std::string::npos) << list.out;
}

TEST_F(Staging, IsRefusedWithoutATemporaryFolder) {
    temporary_.emplace(L"C:\\" + std::wstring(270, L'x'));
    EXPECT_EQ(Run(), (Outcome{.status = 0x80070005}));
    EXPECT_EQ(TakeLog().back(), "2 Access denied to minidump dir and %TEMP% is unavailable; aborting");
}

TEST_F(Staging, IsRefusedWhenALinkIsInItsPlace) {
    for (const char* name : {"ZoProtector", "Minidump"}) {
        const std::filesystem::path temporary = kWork / ("link at " + std::string(name));
        temporary_.emplace(temporary.wstring());
        const bool above = name == std::string("ZoProtector");
        zo::CreateDirectories(above ? temporary : temporary / "ZoProtector");
        zotest::LinkFolder(kWork / "victim", (above ? temporary : temporary / "ZoProtector") / name);
        EXPECT_EQ(Run(), (Outcome{.status = 0x80070005})) << name;
        EXPECT_EQ(TakeLog().back(), "2 Access denied to minidump dir and %TEMP% is unavailable; aborting");
        EXPECT_EQ(zotest::ReadFileBytes(kWork / "victim" / "precious"), "precious");
    }
}

// With full rights, before and after the tests.
TEST(DriverForStaging, DISABLED_Start) {
    static_cast<void>(new zotest::InstalledDriver());  // stays after this process
}

TEST(DriverForStaging, DISABLED_Remove) {
    zotest::RemoveDriverService();
}

}  // namespace
}  // namespace zocrashtest
