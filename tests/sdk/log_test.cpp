// The diagnostic log: its files, and what they must not touch.

#include "debug_output.h"
#include "folder_link.h"
#include "import_hook.h"
#include "loaded_sdk.h"

namespace sdktest {
namespace {

using std::filesystem::exists;

// The log needs no driver: an initialisation that fails sets it up all the same.
class Log : public testing::Test, protected OwnTemporaryFolder {
  protected:
    [[nodiscard]] std::filesystem::path File(const char* date) const {
        return zotest::TodaysLog().parent_path() / (std::string("ZoProtector_") + date + ".log");
    }

    LoadedSdk sdk_;
};

TEST_F(Log, ChangesItsFileWithTheDayOfTheMonthAlone) {
    SYSTEMTIME localTime = {2024, 3, 0, 5, 9, 7, 3, 42};
    const zotest::ImportHook clock("GetLocalTime", GetLocalTime, [&](SYSTEMTIME* time) { *time = localTime; });
    sdk_.Initialize();
    localTime.wMonth = 4;  // the same day of another month: still the March file
    sdk_.WriteLines();
    localTime.wDay = 6;
    sdk_.WriteLines();
    localTime.wDay = 5;
    sdk_.WriteLines();
    const auto march = zotest::ReadLogLines(File("20240305"));
    ASSERT_EQ(march.size(), 4u);
    EXPECT_EQ(march[0], "[2024-03-05 09:07:03.042][INFO ] ZoProtector_Initialize: Starting SDK initialization");
    EXPECT_TRUE(march[2].starts_with("[2024-04-05 09:07:03.042][INFO ] ComputeHardwareIdDigest: mixed "));
    EXPECT_EQ(zotest::ReadLogLines(File("20240406")).size(), 2u);
    EXPECT_EQ(zotest::ReadLogLines(File("20240405")).size(), 2u);
}

TEST_F(Log, BeginsWithTheInitialisationAndTriesAFileThatAnotherProcessHoldsAtEveryLine) {
    const zotest::DebugOutput debugger;
    sdk_.WriteLines();
    EXPECT_TRUE(debugger.Strings().empty());
    EXPECT_FALSE(exists(zotest::TodaysLog().parent_path()));
    create_directories(zotest::TodaysLog().parent_path());
    zo::OwnedFile held(CreateFileW(zotest::TodaysLog().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    sdk_.Initialize();
    held.Reset();
    EXPECT_EQ(zotest::ReadLogLines(), Lines());
    sdk_.WriteLines();
    ASSERT_EQ(debugger.Strings().size(), 4u) << "the debugger is told all";
    const Lines lines = zotest::ReadLogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1] + "\r\n", debugger.Strings()[3]);
}

TEST_F(Log, SweepsFilesOfMoreThanSevenDaysOnceAProcess) {
    constexpr int kWeek = 7 * 24;  // ages are in hours
    const struct {
        std::filesystem::path file;
        int age;
        bool kept;
    } files[] = {
        {File("20240102"), kWeek + 1, false},
        {File("20240103"), kWeek - 1, true},
        {File("20240104"), -kWeek - 1, true},
        {File(""), kWeek + 1, false},
        {File("x").parent_path() / "Other.log", kWeek + 1, true},
    };
    for (const bool isFirst : {true, false}) {
        for (const auto& [file, age, kept] : files) {
            zotest::WriteFileBytes(file, "old");
            last_write_time(file, std::filesystem::file_time_type::clock::now() - std::chrono::hours(age));
        }
        sdk_.Initialize();
        for (const auto& [file, age, kept] : files)
            EXPECT_EQ(exists(file), kept || !isFirst) << file;
    }
}

// Somebody else's folder or file in the place of one of the log's: nothing in it may change, and nothing is deleted.
class LinkedLog : public Log {
  protected:
    // What is logged goes to the debugger alone.
    void ExpectUntouched(const std::filesystem::path& file) {
        const zotest::DebugOutput debugger;
        sdk_.Initialize();
        sdk_.WriteLines();
        EXPECT_EQ(debugger.Strings().size(), 4u);
        EXPECT_EQ(zotest::ReadFileBytes(file), "foreign");
    }

    // link: which folder of the log is the link. logs: the log's own folder, seen from the foreign one.
    void ExpectFolderUntouched(const std::filesystem::path& link, const std::filesystem::path& logs) {
        const zotest::TempFolder foreign;
        const auto old = foreign / logs / "ZoProtector_20200101.log";
        const auto today = foreign / logs / zotest::TodaysLog().filename();
        zotest::WriteFileBytes(old, "foreign");
        zotest::WriteFileBytes(today, "foreign");
        last_write_time(old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(8 * 24));
        zo::CreateDirectories((folder / link).parent_path());
        zotest::LinkFolder(foreign.Path(), folder / link);
        ExpectUntouched(today);
        EXPECT_TRUE(exists(old));
    }
};

TEST_F(LinkedLog, TellsTheDebuggerOnlyWhenZoProtectorIsALink) {
    ExpectFolderUntouched("ZoProtector", "Logs");
}

TEST_F(LinkedLog, TellsTheDebuggerOnlyWhenLogsIsALink) {
    ExpectFolderUntouched("ZoProtector\\Logs", "");
}

TEST_F(LinkedLog, MakesNoFolderInTheForeignOne) {
    const zotest::TempFolder foreign;
    zotest::LinkFolder(foreign.Path(), folder / "ZoProtector");
    sdk_.Initialize();
    EXPECT_TRUE(is_empty(foreign.Path()));
}

TEST_F(LinkedLog, TellsTheDebuggerOnlyWhenTodaysFileIsALink) {
    zotest::WriteFileBytes(zotest::TodaysLog(), "foreign");
    // A link to a file shows as a file under Wine, so the platform's answer is scripted.
    BOOL isAnswered = TRUE;
    const zotest::ImportHook hook("GetFileInformationByHandleEx", GetFileInformationByHandleEx,
                                  [&](HANDLE file, auto kind, void* data, DWORD size) {
                                      const BOOL done = GetFileInformationByHandleEx(file, kind, data, size);
                                      auto* info = static_cast<FILE_BASIC_INFO*>(data);
                                      if (kind != FileBasicInfo || (info->FileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                                          return done;
                                      if (isAnswered) info->FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
                                      return isAnswered;
                                  });
    ExpectUntouched(zotest::TodaysLog());
    isAnswered = FALSE;  // then it may be one
    ExpectUntouched(zotest::TodaysLog());
}

TEST_F(LinkedLog, TellsTheDebuggerOnlyWhenTodaysFileIsAHardLink) {
    zotest::WriteFileBytes(folder / "foreign", "foreign");
    create_directories(zotest::TodaysLog().parent_path());
    create_hard_link(folder / "foreign", zotest::TodaysLog());
    ExpectUntouched(folder / "foreign");
}

// Each load of the library looks for the folder once.
TEST(LogFolder, IsTheCurrentOneWhenTheTemporaryPathIsMissingOrTooLong) {
    const auto before = std::filesystem::current_path();
    for (const DWORD length : {0u, 259u, 260u}) {
        SCOPED_TRACE(length);
        const OwnTemporaryFolder temporary;
        current_path(temporary.folder.Path());
        const auto old = temporary.folder / "ZoProtector_20200101.log";
        zotest::WriteFileBytes(old, "kept");
        last_write_time(old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1000));
        {
            const LoadedSdk sdk;
            const zotest::ImportHook hook("GetTempPathW", GetTempPathW, [length](DWORD size, wchar_t* path) {
                GetTempPathW(size, path);
                return length;
            });
            sdk.Initialize();
        }
        const auto here = temporary.folder / zotest::TodaysLog().filename();
        EXPECT_EQ(zotest::ReadLogLines(here).size(), length == 259 ? 0u : 2u);
        EXPECT_TRUE(exists(old));
        current_path(before);
    }
}

}  // namespace
}  // namespace sdktest
