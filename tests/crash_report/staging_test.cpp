// A dump folder that denies access, staged through the real simulator driver. Run by staging_test.sh, which makes the
// folders and links that Windows calls cannot make under Wine, starts the driver and takes the rights away.

#include <optional>

#include "folder_link.h"
#include "installed_driver.h"
#include "reporter_fixture.h"
#include "zoprotector.h"

namespace zotest {
namespace {

const std::filesystem::path kWork = L"C:\\zo_staging_test";
const std::string kDenied = "C:\\zo_staging_test\\denied";
constexpr Outcome kNotInitialised{.status = 0x80000001};  // by the copy, without the driver

class Staging : public ReporterTest {
  protected:
    Staging() {
        config_.minidumpDir = L"C:\\zo_staging_test\\denied";
        Configure();
    }

    // One of the temporary folders that the script has prepared, with a staging folder that an earlier run left.
    void UseTemporary(const std::string& name) {
        temporary_.emplace((kWork / name).wstring());
        staged_ = kWork / name / "ZoProtector" / "Minidump";
        where_ = staged_.string();
        ASSERT_TRUE(std::filesystem::exists(staged_));
    }
    void OpenDriver() { ASSERT_EQ(ZOTEST_FUNCTION(library_, ZoProtector_Initialize)(), 0); }

    void ExpectRefused(std::size_t lines) {
        EXPECT_EQ(Run(), (Outcome{.status = 0x80070005}));
        const Strings log = TakeLog();
        EXPECT_EQ(log.size(), lines);
        EXPECT_EQ(log.back(), "2 Access denied to minidump dir and %TEMP% is unavailable; aborting");
    }
    static void ExpectVictimUntouched() { EXPECT_EQ(ReadFileBytes(kWork / "victim" / "precious"), "precious"); }

    // The Win32 errors of renaming folders below the staged one, 0 when somebody else could have done it.
    std::vector<DWORD> ErrorsOfMoving(std::initializer_list<const char*> folders) const {
        std::vector<DWORD> errors;
        for (const char* folder : folders) {
            const std::filesystem::path path = (staged_ / folder).lexically_normal();
            errors.push_back(MoveFileExW(path.c_str(), (kWork / "moved").c_str(), 0) ? 0 : GetLastError());
        }
        return errors;
    }

    // Has the library's opening of each folder of this name fail.
    static auto DenyOpening(const char* folder) {
        return ImportHook("CreateFileW", CreateFileW, [folder](const wchar_t* path, auto... rest) -> HANDLE {
            if (std::filesystem::path(path).filename() != folder) return CreateFileW(path, rest...);
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        });
    }

    std::optional<ScopedTmp> temporary_;
    std::filesystem::path staged_;
    std::string where_;
};

TEST_F(Staging, FailsWithTheStatusOfTheCopy) {
    UseTemporary("linked");
    EXPECT_EQ(Run(), kNotInitialised);
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
    ExpectVictimUntouched();
}

TEST_F(Staging, NeverEntersAFolderThatBecomesALinkHalfWay) {
    UseTemporary("swapped");
    WriteFileBytes(staged_ / "old" / "sibling", "");
    const ImportHook hook("DeleteFileW", DeleteFileW, [&](const wchar_t* path) {
        if (std::filesystem::path(path).filename() == "sibling") {
            std::filesystem::rename(staged_ / "old" / "deep", kWork / "aside");
            LinkFolder(kWork / "victim", staged_ / "old" / "deep");
        }
        return DeleteFileW(path);
    });
    EXPECT_EQ(Run(), kNotInitialised);
    EXPECT_TRUE(std::filesystem::exists(kWork / "aside" / "file"));  // it was swapped
    ExpectVictimUntouched();
}

TEST_F(Staging, NamesTheErrorOfAFolderThatCannotBeOpenedUnlessItIsEmpty) {
    UseTemporary("kept");
    OpenDriver();
    const auto denied = DenyOpening("folder");
    onEvent_ = [&](const std::string& event) {
        if (event == "document") std::filesystem::remove(staged_ / "folder" / "inner.dmp");
    };
    EXPECT_EQ(Run(), kQueryFailed);
    EXPECT_EQ(TakeLog().back(), "0 Removed staged dir " + where_ + " (entries cleared: 3)");
    onEvent_ = nullptr;
    EXPECT_EQ(Run().status, 0u);
    EXPECT_EQ(TakeLog().back(), "1 Failed to remove staged dir " + where_ + ": 5");
}

TEST_F(Staging, HoldsEachFolderWhileItIsEmptied) {
    UseTemporary("held");
    std::vector<DWORD> errors;
    const ImportHook hook("DeleteFileW", DeleteFileW, [&](const wchar_t* path) {
        if (std::filesystem::path(path).filename() == "file") errors = ErrorsOfMoving({"old/deep", "old", ".", ".."});
        return DeleteFileW(path);
    });
    EXPECT_EQ(Run(), kNotInitialised);
    EXPECT_EQ(errors, std::vector<DWORD>(4, ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(std::filesystem::exists(staged_));
}

TEST_F(Staging, HoldsTheFolderFromBeforeTheCopyUntilItsDumpsAreDealtWith) {
    UseTemporary("tmp");
    OpenDriver();
    std::vector<DWORD> atTheCopy;
    std::vector<DWORD> atTheDump;
    const ImportHook hook("DeviceIoControl", DeviceIoControl, [&](HANDLE device, DWORD code, auto... rest) {
        if (code == ZOP_IOCTL_COPY_DIRECTORY) atTheCopy = ErrorsOfMoving({".", ".."});
        return DeviceIoControl(device, code, rest...);
    });
    // Somebody else is quicker with one of the files.
    const ImportHook deletion("DeleteFileW", DeleteFileW, [](const wchar_t* path) {
        if (std::filesystem::path(path).filename() == "inner.dmp") std::filesystem::remove(path);
        return DeleteFileW(path);
    });
    onEvent_ = [&](const std::string& event) {
        if (event == "document") atTheDump = ErrorsOfMoving({".", ".."});
    };
    EXPECT_EQ(Run(), kQueryFailed);
    EXPECT_EQ(atTheCopy, std::vector<DWORD>(2, ERROR_SHARING_VIOLATION));
    EXPECT_EQ(atTheDump, std::vector<DWORD>(2, ERROR_SHARING_VIOLATION));
    // Removed are the dump, the folder in the folder and the staging folder.
    EXPECT_EQ(
        TakeLog(),
        (Strings{"0 Minidump dir: " + kDenied, "1 Access denied to " + kDenied + "; staging via driver to " + where_,
                 "0 Staged minidumps: files=2, dirs=1, skipped=0; using " + where_ + " for the rest of this run",
                 "0 Found 1 new minidump(s)", "0 Dump " + where_ + "\\a.dmp matched=[ZoProtector] upload=true",
                 "0 Removed staged dir " + where_ + " (entries cleared: 3)"}));
    EXPECT_FALSE(std::filesystem::exists(staged_));
}

TEST_F(Staging, WorksForZoctlWhichOpensTheChannelByItself) {
    const auto list = RunChild((ProgramFolder() / "zoctl.exe").wstring(),
                               {L"crash", L"list", L"--dumps", config_.minidumpDir, L"--record", record_.wstring()});
    EXPECT_EQ(list.exitCode, 0u) << list.err;
    EXPECT_NE(list.out.find("a.dmp"), std::string::npos) << list.out;
}

TEST_F(Staging, IsRefusedWithoutATemporaryFolder) {
    temporary_.emplace(L"C:\\" + std::wstring(270, L'x'));
    ExpectRefused(2);
}

TEST_F(Staging, IsRefusedWhenTheFolderAboveCannotBeHeld) {
    UseTemporary("kept");
    const auto denied = DenyOpening("ZoProtector");
    ExpectRefused(3);
}

TEST_F(Staging, IsRefusedWhenALinkIsInItsPlace) {
    // With the lines of the log: a link above the folder is refused before anything is tried.
    const Rows<std::size_t> rows = {{"ZoProtector", 2}, {"ZoProtector/Minidump", 3}};
    for (const auto& [link, lines] : rows) {
        SCOPED_TRACE(link);
        const std::filesystem::path temporary = kWork / "with a link" / std::filesystem::path(link).filename();
        temporary_.emplace(temporary.wstring());
        zo::CreateDirectories((temporary / link).parent_path());
        LinkFolder(kWork / "victim", temporary / link);
        ExpectRefused(lines);
        ExpectVictimUntouched();
    }
}

// With full rights, before and after the tests.
TEST(DriverForStaging, DISABLED_Start) {
    static_cast<void>(new InstalledDriver());  // stays after this process
}

TEST(DriverForStaging, DISABLED_Remove) {
    RemoveDriverService();
}

}  // namespace
}  // namespace zotest
