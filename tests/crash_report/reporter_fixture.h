#pragma once

// The crash reporter as a caller has it: a freshly loaded library (so with its own state, the network gate closed), a
// folder of dumps, a record path, a logger that keeps the lines and a scrambler that keeps the documents and refuses,
// so that nothing is sent. Dumps are copies of those that the build made; they get the write times that a test gives.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#define ZO_NO_IMPORT
#include "loaded_library.h"
#include "temp_folder.h"
#include "zocrashreport.h"

namespace zocrashtest {

using Strings = std::vector<std::string>;

inline constexpr std::uint64_t kBase = 133500000000000000;  // a time of files
inline constexpr auto kAborted = static_cast<std::int32_t>(0x80004004u);
inline constexpr char kBugcheckLineOnly[] = "a83d38223dd8c1365da314f1f15dda87";  // MD5 of "Bugcheck code 1e\n"

// The dumps of tests/crash_report/CMakeLists.txt.
inline constexpr char kOurs[] = "ours.dmp";          // ZoProtector is on its stack, the last event an exception
inline constexpr char kOurs2[] = "ours2.dmp";        // another crash with ZoProtector on its stack
inline constexpr char kForeign[] = "foreign.dmp";    // without it
inline constexpr char kNoException[] = "quiet.dmp";  // ZoProtector is on its stack, but no exception
inline constexpr char kNoDump[] = "";                // a few bytes that no engine opens

struct Exports {
    const zotest::LoadedLibrary& library;
    decltype(&ZoCrashReport_Initialize) initialize = ZOTEST_FUNCTION(library, ZoCrashReport_Initialize);
    decltype(&ZoCrashReport_Uninitialize) uninitialize = ZOTEST_FUNCTION(library, ZoCrashReport_Uninitialize);
    decltype(&ZoCrashReport_SetLogger) setLogger = ZOTEST_FUNCTION(library, ZoCrashReport_SetLogger);
    decltype(&ZoCrashReport_SetBodyScrambler) setScrambler = ZOTEST_FUNCTION(library, ZoCrashReport_SetBodyScrambler);
    decltype(&ZoCrashReport_SetTargetDrivers) setTargets = ZOTEST_FUNCTION(library, ZoCrashReport_SetTargetDrivers);
    decltype(&ZoCrashReport_NotifyNetworkOk) networkOk = ZOTEST_FUNCTION(library, ZoCrashReport_NotifyNetworkOk);
    decltype(&ZoCrashReport_Cancel) cancel = ZOTEST_FUNCTION(library, ZoCrashReport_Cancel);
    decltype(&ZoCrashReport_ResetCancel) resetCancel = ZOTEST_FUNCTION(library, ZoCrashReport_ResetCancel);
    decltype(&ZoCrashReport_Run) run = ZOTEST_FUNCTION(library, ZoCrashReport_Run);
    decltype(&ZoCrashReport_UploadSingleDump) upload = ZOTEST_FUNCTION(library, ZoCrashReport_UploadSingleDump);
};

class ReporterTest : public testing::Test {
  protected:
    // holdBack: with the scrambler that refuses; otherwise the library's own stays.
    explicit ReporterTest(bool holdBack = true);
    ~ReporterTest() override;

    // Hands config_ over, the paths of this test filled in where a test left them null.
    void Configure();

    std::filesystem::path AddDump(const std::string& name, const char* kind, std::uint64_t lastWrite);
    void SetRecord(std::uint64_t value);
    [[nodiscard]] std::uint64_t Record() const;  // 0 when there is none
    void RemoveRecord() { zotest::RemoveTree(record_.wstring()); }

    // The engine's script, and the calls it got since the last look.
    void Script(const std::string& script) { zotest::WriteFileBytes(folder_ / "script", script); }
    Strings EngineCalls();

    // Lines "LEVEL text" since the last look; paths below the test's folder begin with "~".
    Strings TakeLog() { return std::exchange(log_, {}); }

    // A run, or one dump, with counters that start from 0: the status in hexadecimal, ":", and the counters that it left.
    std::string Run();
    std::string Upload(const std::filesystem::path& dump);
    // A run over everything, as if it were the first.
    std::string RunAnew();

    zotest::TempFolder folder_;
    std::filesystem::path dumps_ = folder_ / "dumps";
    std::filesystem::path record_ = folder_ / "record" / "crash_compare.dat";
    zotest::LoadedLibrary library_;
    Exports api_{library_};
    ZoCrashReportConfig config_{};
    ZoCrashRunStats stats_{};
    Strings documents_;
    std::function<void(const std::string& line)> onLog_;
    std::function<void()> onDocument_;

  private:
    static void Log(void* context, std::int32_t level, const wchar_t* message);
    static std::int32_t Refuse(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                               std::uint32_t outCapacity, std::uint32_t* outLength);
    [[nodiscard]] std::string Shortened(std::string line) const;

    Strings log_;
};

// One post as the crash server kept it.
struct Request {
    std::string head;
    std::string body;
    std::string document;
    std::string reply;
};

// Run by simulator/crash_server/serve, whose environment tells where that is and whose folder shows what reached it.
class ServerTest : public ReporterTest {
  protected:
    static void SetUpTestSuite() { EXPECT_EQ(Trust(L"add", "certificate.der"), 0u); }
    static void TearDownTestSuite() { EXPECT_EQ(Trust(L"remove", "certificate.der"), 0u); }
    using ReporterTest::ReporterTest;

    static std::string Url();
    static std::filesystem::path ServerFile(const std::string& name);
    static std::uint32_t Trust(const wchar_t* verb, const char* certificate);
    static void Conditions(const std::string& lines) { zotest::WriteFileBytes(ServerFile("conditions.txt"), lines); }

    // How many posts there were, and those since there were `before`.
    static std::size_t Posts();
    static std::vector<Request> Requests(std::size_t before);

    // From now on dumps are of a crash that the server has not seen.
    void NewCrash();
};

// Status and counters as Run() gives them.
[[nodiscard]] std::string Outcome(std::int32_t status, const ZoCrashRunStats& stats);

// The value between a field's tags; "?" when the document does not have it.
[[nodiscard]] std::string Field(const std::string& document, const std::string& name);

void SetLastWrite(const std::filesystem::path& file, std::uint64_t time);

}  // namespace zocrashtest
