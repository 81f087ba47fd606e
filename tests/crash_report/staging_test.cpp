// A dump folder that denies access, staged through the real simulator driver. Run by staging_test.sh, which makes the
// folders and links that Windows calls cannot make under Wine, starts the driver and takes the rights away.

#include <optional>

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
    }

    // One of the temporary folders that the script has prepared, with a staging folder that an earlier run left.
    void UseTemporary(const std::string& name) {
        temporary_.emplace((kWork / name).wstring());
        staged_ = kWork / name / "ZoProtector" / "Minidump";
        where_ = staged_.string();
        ASSERT_TRUE(std::filesystem::exists(staged_ / "old" / "deep" / "file"));
    }
    void OpenDriver() { ASSERT_EQ(ZOTEST_FUNCTION(library_, ZoProtector_Initialize)(), 0); }

    std::optional<zotest::ScopedTmp> temporary_;
    std::filesystem::path staged_;
    std::string where_;
};

TEST_F(Staging, FailsWithTheCopysStatusAndNeverFollowsALinkThatWasPlanted) {
    UseTemporary("linked");
    ASSERT_EQ(GetFileAttributesW((staged_ / "link").c_str()), 0x410u);
    EXPECT_EQ(Run(), "80000001: 0 0 0 0 0 0 0");  // ZOP_E_NOT_INITIALIZED
    EXPECT_EQ(TakeLog(), (Strings{"0 Minidump dir: " + kDenied,
                                  "1 Access denied to " + kDenied + "; staging via driver to " + where_,
                                  "2 Driver-side copy failed: 0x80000001 (files=0, dirs=0, skipped=0)"}));
    EXPECT_FALSE(std::filesystem::exists(staged_ / "old"));

    OpenDriver();
    zotest::SimulatorClient().FailNext(ZOP_IOCTL_COPY_DIRECTORY, 0xC0000022);
    EXPECT_EQ(Run(), "80000004: 0 0 0 0 0 0 0");
    EXPECT_EQ(TakeLog().back(), "2 Driver-side copy failed: 0x80000004 (files=0, dirs=0, skipped=0)");

    // Under Wine the link itself cannot be removed; the driver's copy is gone all the same.
    EXPECT_EQ(Run(), "0: 1 1 0 0 1 0 0");
    EXPECT_EQ(TakeLog().back(), "1 Failed to remove staged dir " + where_ + ": 145");
    EXPECT_FALSE(std::filesystem::exists(staged_ / "a.dmp"));
    EXPECT_EQ(zotest::ReadFileBytes(kWork / "victim" / "precious"), "precious");
}

TEST_F(Staging, ReadsTheDriversCopyAndRemovesIt) {
    UseTemporary("tmp");
    OpenDriver();
    EXPECT_EQ(Run(), "0: 1 1 0 0 1 0 0");
    // Removed are the dump, the folder in the folder with its file, and the staging folder.
    EXPECT_EQ(
        TakeLog(),
        (Strings{"0 Minidump dir: " + kDenied, "1 Access denied to " + kDenied + "; staging via driver to " + where_,
                 "0 Staged minidumps: files=2, dirs=1, skipped=0; using " + where_ + " for the rest of this run",
                 "0 Found 1 new minidump(s)", "0 Dump " + where_ + "\\a.dmp matched=[ZoProtector] upload=true",
                 "0 Removed staged dir " + where_ + " (entries cleared: 4)"}));
    EXPECT_FALSE(std::filesystem::exists(staged_));

    // A program that opens the channel by itself.
    RemoveRecord();
    ZOTEST_FUNCTION(library_, ZoProtector_Uninitialize)();
    const auto list =
        zotest::RunChild((zotest::ProgramFolder() / "zoctl.exe").wstring(),
                         {L"crash", L"list", L"--dumps", config_.minidumpDir, L"--record", record_.wstring()});
    EXPECT_EQ(list.exitCode, 0u) << list.err;
    EXPECT_NE(list.out.find("a.dmp"), std::string::npos) << list.out;

    temporary_.emplace(L"C:\\" + std::wstring(270, L'x'));
    EXPECT_EQ(Run(), "80070005: 0 0 0 0 0 0 0");
    EXPECT_EQ(TakeLog().back(), "2 Access denied to minidump dir and %TEMP% is unavailable; aborting");
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
