// The diagnostic log's file: which one, when, and what becomes of old ones. Needs no driver: an initialisation that
// fails sets the log up all the same.

#include <gtest/gtest.h>

#include <algorithm>

#include "debug_output.h"
#include "import_hook.h"
#include "loaded_sdk.h"
#include "log_reader.h"
#include "owned_handles.h"
#include "temp_folder.h"

namespace sdktest {
namespace {

SYSTEMTIME localTime;

void WINAPI FakeLocalTime(SYSTEMTIME* time) {
    *time = localTime;
}

void SetDate(WORD year, WORD month, WORD day) {
    localTime = {year, month, 0, day, 9, 7, 3, 42};
}

class Log : public testing::Test {
  protected:
    [[nodiscard]] std::filesystem::path File(const char* name) const {
        return folder_.Path() / "ZoProtector" / "Logs" / name;
    }

    zotest::TempFolder folder_;
    zotest::ScopedTmp tmp_{folder_.Path().wstring()};
};

TEST_F(Log, ChangesItsFileWithTheDayOfTheMonthAlone) {
    const LoadedSdk sdk;
    const zotest::ImportHook clock("GetLocalTime", &FakeLocalTime);
    SetDate(2024, 3, 5);
    sdk.Initialize();
    SetDate(2024, 4, 5);  // the same day of another month: still the March file
    sdk.WriteLines();
    SetDate(2024, 4, 6);
    sdk.WriteLines();
    SetDate(2024, 3, 5);
    sdk.WriteLines();
    const auto march = zotest::ReadLogLines(File("ZoProtector_20240305.log"));
    ASSERT_EQ(march.size(), 6u);
    EXPECT_EQ(march[0], "[2024-03-05 09:07:03.042][INFO ] ZoProtector_Initialize: Starting SDK initialization");
    EXPECT_TRUE(march[2].starts_with("[2024-04-05 09:07:03.042][INFO ] ComputeHardwareIdDigest: mixed "));
    EXPECT_EQ(zotest::ReadLogLines(File("ZoProtector_20240406.log")).size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(File("ZoProtector_20240405.log")));
}

TEST_F(Log, TellsTheDebuggerTheSame) {
    std::string text;
    {
        const LoadedSdk sdk;
        const zotest::DebugOutput debugger;
        sdk.WriteLines();  // nobody hears what comes before the first initialisation
        EXPECT_TRUE(debugger.Strings().empty());
        EXPECT_FALSE(std::filesystem::exists(zotest::TodaysLog().parent_path()));
        sdk.Initialize();
        sdk.WriteLines();
        EXPECT_EQ(debugger.Strings().size(), 4u);
        for (const std::string& line : debugger.Strings()) {
            EXPECT_TRUE(line.ends_with("\r\n")) << line;
            text += line;
        }
    }
    EXPECT_EQ(zotest::ReadFileBytes(zotest::TodaysLog()), text);
}

TEST_F(Log, SweepsFilesOfMoreThanSevenDaysOnceAProcess) {
    constexpr int kDay = 24;  // ages are in hours
    const auto make = [&](const char* name, int age) {
        zotest::WriteFileBytes(File(name), "old");
        std::filesystem::last_write_time(File(name),
                                         std::filesystem::file_time_type::clock::now() - std::chrono::hours(age));
    };
    const struct {
        const char* name;
        int age;
        bool kept;
    } files[] = {
        {"ZoProtector_20240101.log", 8 * kDay, false},
        {"ZoProtector_20240102.log", 7 * kDay + 1, false},
        {"ZoProtector_20240103.log", 7 * kDay - 1, true},
        {"ZoProtector_20240104.log", -8 * kDay, true},
        {"ZoProtector_.log", 8 * kDay, false},
        {"Other.log", 8 * kDay, true},
        {"ZoProtector_x.txt", 8 * kDay, true},
    };
    for (const auto& file : files)
        make(file.name, file.age);
    {
        const LoadedSdk sdk;
        sdk.Initialize();
        for (const auto& file : files)
            EXPECT_EQ(std::filesystem::exists(File(file.name)), file.kept) << file.name;
        make("ZoProtector_20240101.log", 8 * kDay);
        sdk.Initialize();
        EXPECT_TRUE(std::filesystem::exists(File("ZoProtector_20240101.log")));
    }
    const LoadedSdk another;  // a process of its own, as far as the log is concerned
    another.Initialize();
    EXPECT_FALSE(std::filesystem::exists(File("ZoProtector_20240101.log")));
}

TEST_F(Log, AFileHeldByAnotherProcessIsTriedAgainAtEveryLine) {
    const LoadedSdk sdk;
    const zotest::DebugOutput debugger;
    std::filesystem::create_directories(zotest::TodaysLog().parent_path());
    {
        const zo::OwnedFile held(CreateFileW(zotest::TodaysLog().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                                             OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(held);
        sdk.Initialize();
        sdk.WriteLines();
        EXPECT_EQ(debugger.Strings().size(), 4u);
    }
    EXPECT_TRUE(zotest::ReadLogLines().empty());
    sdk.WriteLines();
    EXPECT_EQ(zotest::ReadLogLines().size(), 2u);
}

TEST_F(Log, FallsBackToTheCurrentFolder) {
    const zotest::TempFolder current;
    wchar_t before[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, before);
    ASSERT_TRUE(SetCurrentDirectoryW(current.Path().c_str()));
    const std::filesystem::path file = current.Path() / zotest::TodaysLog().filename();
    const auto old = current.Path() / "ZoProtector_20200101.log";
    zotest::WriteFileBytes(old, "kept: nothing is swept here");
    {
        const zotest::ScopedTmp tooLong(L"C:\\" + std::wstring(300, L't'));
        const LoadedSdk sdk;
        sdk.Initialize();
        EXPECT_EQ(zotest::ReadLogLines(file).size(), 2u);
        EXPECT_TRUE(std::filesystem::exists(old));
    }
    SetCurrentDirectoryW(before);
}

}  // namespace
}  // namespace sdktest
