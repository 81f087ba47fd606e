// A dump folder that denies access, staged through the real simulator driver. Run by staging_test.sh, which makes the
// folders and links that Windows calls cannot make under Wine, starts the driver and takes the rights away.

#include <cstring>

#include "format.h"
#include "installed_driver.h"
#include "reporter_fixture.h"
#include "text.h"
#include "zoprotector.h"

namespace zocrashtest {
namespace {

using Strings = std::vector<std::string>;

const std::filesystem::path kWork = L"C:\\zo_staging_test";

class Staging : public ReporterTest {
  protected:
    Staging() {
        denied_ = (kWork / "denied").wstring();
        config_.minidumpDir = denied_.c_str();
        Configure();
        api_.notifyNetworkOk();
    }

    // The reporter's staging folder under a temporary folder that the script has prepared.
    static std::filesystem::path Staged(const char* temporary) {
        return kWork / temporary / "ZoProtector" / "Minidump";
    }

    // What the planted link leads to.
    static bool VictimIsWhole() { return zotest::ReadFileBytes(kWork / "victim" / "precious") == "precious"; }

    std::wstring denied_;
};

std::string AccessLine(const std::filesystem::path& staged) {
    return "1 Access denied to C:\\zo_staging_test\\denied; staging via driver to " + staged.string();
}

TEST_F(Staging, FailsWithTheCopysStatusAndLeavesNothing) {
    const zotest::ScopedTmp temporary((kWork / "tmp1").wstring());
    const std::filesystem::path staged = Staged("tmp1");
    ASSERT_TRUE(std::filesystem::exists(staged / "old" / "deep" / "file"));
    EXPECT_EQ(api_.run(&stats_), ZOP_E_NOT_INITIALIZED);
    EXPECT_EQ(TakeLog(), (Strings{"0 Minidump dir: C:\\zo_staging_test\\denied", AccessLine(staged),
                                  "2 Driver-side copy failed: 0x80000001 (files=0, dirs=0, skipped=0)"}));
    // Wine cannot remove the planted link, but it was not followed, and what stood around it is gone.
    EXPECT_FALSE(std::filesystem::exists(staged / "old"));
    EXPECT_TRUE(VictimIsWhole());

    ASSERT_EQ(ZOTEST_FUNCTION(library_, ZoProtector_Initialize)(), 0);
    zotest::SimulatorClient().FailNext(ZOP_IOCTL_COPY_DIRECTORY, 0xC0000022);
    EXPECT_EQ(api_.run(&stats_), ZOP_E_ACCESS_DENIED);
    EXPECT_EQ(TakeLog().back(), "2 Driver-side copy failed: 0x80000004 (files=0, dirs=0, skipped=0)");
    EXPECT_TRUE(VictimIsWhole());
    EXPECT_EQ(Counters(), "0 0 0 0 0 0 0");
    ZOTEST_FUNCTION(library_, ZoProtector_Uninitialize)();
}

TEST_F(Staging, ReadsTheDriversCopyAndRemovesIt) {
    const zotest::ScopedTmp temporary((kWork / "tmp2").wstring());
    const std::filesystem::path staged = Staged("tmp2");
    ASSERT_TRUE(std::filesystem::exists(staged / "old" / "deep" / "file"));
    ASSERT_EQ(ZOTEST_FUNCTION(library_, ZoProtector_Initialize)(), 0);
    EXPECT_EQ(api_.run(&stats_), 0);
    const Strings log = TakeLog();
    const std::string where = staged.string();
    ASSERT_EQ(log.size(), 6u);
    EXPECT_EQ(log[1], AccessLine(staged));
    EXPECT_EQ(log[2], "0 Staged minidumps: files=2, dirs=1, skipped=0; using " + where + " for the rest of this run");
    EXPECT_EQ(log[3], "0 Found 1 new minidump(s)");
    EXPECT_EQ(log[4], "0 Dump " + where + "\\a.dmp matched=[ZoProtector] upload=true");
    // The dump, the folder in the folder with its file, and the staging folder.
    EXPECT_EQ(log[5], "0 Removed staged dir " + where + " (entries cleared: 4)");
    EXPECT_FALSE(std::filesystem::exists(staged));
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");

    // What is in use at the end stays, and that is said.
    std::uint64_t none = 0;
    zotest::WriteFileBytes(record_, std::string(reinterpret_cast<const char*>(&none), sizeof(none)));
    zo::OwnedFile held;
    onLog_ = [&](const std::string& line) {
        if (!line.starts_with("0 Found")) return;
        held.Reset(
            CreateFileW((staged / "a.dmp").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    };
    EXPECT_EQ(api_.run(nullptr), 0);
    EXPECT_EQ(TakeLog().back(), "1 Failed to remove staged dir " + where + ": 32");
    ZOTEST_FUNCTION(library_, ZoProtector_Uninitialize)();
}

TEST_F(Staging, NeverFollowsALinkThatWasPlanted) {
    const zotest::ScopedTmp temporary((kWork / "tmp3").wstring());
    const std::filesystem::path staged = Staged("tmp3");
    ASSERT_EQ(GetFileAttributesW((staged / "link").c_str()), 0x410u);
    ASSERT_EQ(ZOTEST_FUNCTION(library_, ZoProtector_Initialize)(), 0);
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");
    // Under Wine the link itself cannot be removed; the driver's copy and what lay there before are gone all the same.
    EXPECT_EQ(TakeLog().back(), "1 Failed to remove staged dir " + staged.string() + ": 145");
    EXPECT_FALSE(std::filesystem::exists(staged / "old"));
    EXPECT_FALSE(std::filesystem::exists(staged / "a.dmp"));
    EXPECT_TRUE(VictimIsWhole());
    ZOTEST_FUNCTION(library_, ZoProtector_Uninitialize)();
}

TEST_F(Staging, NeedsATemporaryFolder) {
    const zotest::ScopedTmp temporary(L"C:\\" + std::wstring(270, L'x'));
    EXPECT_EQ(static_cast<std::uint32_t>(api_.run(&stats_)), 0x80070005u);
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
