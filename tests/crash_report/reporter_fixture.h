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

inline constexpr auto kAborted = static_cast<std::int32_t>(0x80004004u);
inline constexpr auto kNoNetwork = static_cast<std::int32_t>(0x80070102u);
inline constexpr auto kRefused = static_cast<std::int32_t>(0x80004005u);

// The dumps of tests/crash_report/CMakeLists.txt.
inline constexpr char kOurs[] = "ours.dmp";          // ZoProtector is on its stack, the last event an exception
inline constexpr char kOurs2[] = "ours2.dmp";        // another crash with ZoProtector on its stack
inline constexpr char kForeign[] = "foreign.dmp";    // without it
inline constexpr char kNoException[] = "quiet.dmp";  // ZoProtector is on its stack, but no exception
inline constexpr char kNoDump[] = "";                // a few bytes that no engine opens

struct Exports {
    explicit Exports(const zotest::LoadedLibrary& library);
    decltype(&ZoCrashReport_Initialize) initialize;
    decltype(&ZoCrashReport_Uninitialize) uninitialize;
    decltype(&ZoCrashReport_SetLogger) setLogger;
    decltype(&ZoCrashReport_SetBodyScrambler) setBodyScrambler;
    decltype(&ZoCrashReport_SetTargetDrivers) setTargetDrivers;
    decltype(&ZoCrashReport_NotifyNetworkOk) notifyNetworkOk;
    decltype(&ZoCrashReport_Cancel) cancel;
    decltype(&ZoCrashReport_ResetCancel) resetCancel;
    decltype(&ZoCrashReport_Run) run;
    decltype(&ZoCrashReport_UploadSingleDump) uploadSingleDump;
};

class ReporterTest : public testing::Test {
  protected:
    // holdBack: with the scrambler that refuses; otherwise the library's own stays.
    explicit ReporterTest(bool holdBack = true);
    ~ReporterTest() override;

    // Hands config_ over, the paths of this test filled in where a test left them null.
    void Configure();

    // A file in the dump folder whose last-write time is kBase + age.
    std::filesystem::path AddDump(const std::string& name, const char* kind, std::uint64_t time);
    void SetRecord(std::uint64_t value);
    [[nodiscard]] std::uint64_t Record() const;  // 0 when there is none

    // The engine's script, and the calls it got since the last look.
    void Script(const std::string& script);
    std::vector<std::string> EngineCalls();

    // Lines "LEVEL text" since the last look; paths below the test's folder begin with "~".
    std::vector<std::string> TakeLog();

    [[nodiscard]] std::string Counters() const;  // the seven counters with blanks between

    zotest::TempFolder folder_;
    std::filesystem::path dumps_ = folder_ / "dumps";
    std::filesystem::path record_ = folder_ / "record" / "crash_compare.dat";
    zotest::LoadedLibrary library_;
    Exports api_{library_};
    ZoCrashReportConfig config_{};
    ZoCrashRunStats stats_{};
    std::vector<std::string> documents_;
    std::function<void(const std::string& line)> onLog_;
    std::function<void()> onDocument_;

  private:
    static void Log(void* context, std::int32_t level, const wchar_t* message);
    static std::int32_t Refuse(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                               std::uint32_t outCapacity, std::uint32_t* outLength);

    std::vector<std::string> log_;
};

// The value between a field's tags; "?" when the document does not have it.
[[nodiscard]] std::string Field(const std::string& document, const std::string& name);

void SetLastWrite(const std::filesystem::path& file, std::uint64_t time);

}  // namespace zocrashtest
