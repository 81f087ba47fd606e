#pragma once

// The crash reporter as a caller has it: a freshly loaded library (with its own state and the network gate closed), a
// folder of dumps, a record path, a logger that keeps the lines, and a scrambler that keeps the documents and refuses
// them, so that nothing is sent. Dumps are copies of those that the build made, with the write times that a test gives.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#define ZO_NO_IMPORT
#include "child_process.h"
#include "format.h"
#include "import_hook.h"
#include "loaded_library.h"
#include "owned_handles.h"
#include "rows.h"
#include "temp_folder.h"
#include "text.h"
#include "zocrashreport.h"

namespace zotest {

using Strings = std::vector<std::string>;

inline constexpr std::uint64_t kBase = 133500000000000000;  // a time of files

// The dumps of tests/crash_report/CMakeLists.txt.
inline constexpr char kOurs[] = "ours.dmp";          // ZoProtector is on its stack, the last event an exception
inline constexpr char kOurs2[] = "ours2.dmp";        // another crash with ZoProtector on its stack
inline constexpr char kForeign[] = "foreign.dmp";    // without it
inline constexpr char kNoException[] = "quiet.dmp";  // ZoProtector is on its stack, but no exception
inline constexpr char kNoDump[] = "";                // an empty file

// The status of a run, or of one upload, and the counters that it left.
struct Outcome {
    std::uint32_t status = 0;
    std::uint32_t found = 0;
    std::uint32_t selected = 0;
    std::uint32_t accepted = 0;
    std::uint32_t alreadyKnown = 0;
    std::uint32_t queriesFailed = 0;
    std::uint32_t uploaded = 0;
    std::uint32_t uploadsFailed = 0;

    friend bool operator==(const Outcome&, const Outcome&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Outcome& o) {
        return out << zo::Format(
                   "{:#x}: found {} selected {} accepted {} known {} queriesFailed {} uploaded {} failed {}", o.status,
                   o.found, o.selected, o.accepted, o.alreadyKnown, o.queriesFailed, o.uploaded, o.uploadsFailed);
    }
};

// One dump was taken, and its query was not sent or not answered.
inline constexpr Outcome kQueryFailed{.found = 1, .selected = 1, .queriesFailed = 1};

struct Exports {
    const LoadedLibrary& library;
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
    explicit ReporterTest(bool holdBack = true) {
        std::filesystem::create_directories(dumps_);
        config_.minidumpDir = dumps_.c_str();
        config_.compareFilePath = record_.c_str();
        api_.setLogger(
            [](void* context, std::int32_t level, const wchar_t* message) {
                auto& self = *static_cast<ReporterTest*>(context);
                self.log_.push_back(self.Shortened(zo::Format("{} {}", level, zo::Utf8FromWide(message))));
                if (self.onEvent_) self.onEvent_(self.log_.back());
            },
            this);
        if (holdBack) api_.setScrambler(Refuse, this);
    }

    // With the network up, unless a test says otherwise.
    void Configure() {
        ASSERT_EQ(api_.initialize(&config_), 0);
        if (networkIsUp_) api_.networkOk();
    }
    void SetTarget(const char* name) { api_.setTargets(&name, 1); }

    std::filesystem::path AddFile(const std::string& name, const std::string& bytes, std::uint64_t lastWrite) {
        const std::filesystem::path path = dumps_ / name;
        WriteFileBytes(path, bytes);
        const zo::OwnedFile file(
            CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        const FILETIME time{static_cast<DWORD>(lastWrite), static_cast<DWORD>(lastWrite >> 32)};
        EXPECT_TRUE(SetFileTime(file.Get(), nullptr, nullptr, &time));
        return path;
    }
    std::filesystem::path AddDump(const std::string& name, const char* kind, std::uint64_t lastWrite) {
        return AddFile(name, ReadFileBytes(ProgramFolder() / "dumps" / kind), lastWrite);
    }

    // "1.dmp", "2.dmp" and so on, each a unit of time newer than the one before.
    void AddDumps(std::initializer_list<const char*> kinds) {
        for (std::uint64_t number = 0; const char* kind : kinds) {
            ++number;
            AddDump(std::to_string(number) + ".dmp", kind, kBase + number);
        }
    }

    void SetRecord(std::uint64_t value) {
        WriteFileBytes(record_, std::string(reinterpret_cast<const char*>(&value), sizeof(value)));
    }
    [[nodiscard]] std::uint64_t Record() const {  // 0 when there is none
        const std::string bytes = ReadFileBytes(record_);
        std::uint64_t value = 0;
        if (bytes.size() == sizeof(value)) std::memcpy(&value, bytes.data(), sizeof(value));
        return value;
    }
    void RemoveRecord() { RemoveTree(record_.wstring()); }

    // What the engine is to do wrong; simulator/debug_engine/README.md describes the form.
    void Script(const std::string& script) { WriteFileBytes(folder_ / "script", script); }

    // Paths below the test's folder begin with "~".
    [[nodiscard]] std::string Shortened(std::string line) const {
        const std::string folder = zo::Utf8FromWide(folder_.Path().wstring());
        for (std::size_t at; (at = line.find(folder)) != std::string::npos;)
            line.replace(at, folder.size(), "~");
        return line;
    }
    // Lines "LEVEL text" since the last look.
    Strings TakeLog() { return std::exchange(log_, {}); }

    // A run, or one dump, with counters that start from 0.
    Outcome Run() {
        stats_ = {};
        return MakeOutcome(api_.run(&stats_));
    }
    Outcome Upload(const std::filesystem::path& dump) {
        stats_ = {};
        return MakeOutcome(api_.upload(dump.c_str(), &stats_));
    }
    // A run over everything, as if it were the first.
    Outcome RunAnew() {
        RemoveRecord();
        Configure();
        documents_.clear();
        TakeLog();
        return Run();
    }
    [[nodiscard]] Outcome MakeOutcome(std::int32_t status) const {
        return {
            static_cast<std::uint32_t>(status), stats_.dumpsFound,    stats_.dumpsSelected,    stats_.queriesAccepted,
            stats_.queriesAlreadyKnown,         stats_.queriesFailed, stats_.uploadsSucceeded, stats_.uploadsFailed};
    }

    TempFolder folder_;
    std::filesystem::path dumps_ = folder_ / "dumps";
    std::filesystem::path record_ = folder_ / "record" / "crash_compare.dat";
    ScopedEnvironment script_{L"ZO_DEBUG_ENGINE_SCRIPT", (folder_ / "script").wstring()};
    ScopedEnvironment engineLog_{L"ZO_DEBUG_ENGINE_LOG", (folder_ / "engine.log").wstring()};
    LoadedLibrary library_;
    Exports api_{library_};
    ZoCrashReportConfig config_{};
    bool networkIsUp_ = true;
    ZoCrashRunStats stats_{};
    Strings documents_;
    std::function<void(const std::string& event)> onEvent_;  // a line of the log, or "document"

  private:
    static std::int32_t Refuse(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t*,
                               std::uint32_t, std::uint32_t*) {
        auto& self = *static_cast<ReporterTest*>(context);
        self.documents_.emplace_back(in, in + inLength);
        if (self.onEvent_) self.onEvent_("document");
        return E_FAIL;
    }

    Strings log_;
};

// One post as the crash server kept it.
struct Request {
    std::string head;
    std::string body;
    std::string document;
    std::string reply;
};

// Run by simulator/crash_server/serve: its environment variables name the server, its folder shows what arrived.
class ServerTest : public ReporterTest {
  protected:
    static void SetUpTestSuite() { EXPECT_EQ(Trust(L"add", "certificate.der"), 0u); }
    static void TearDownTestSuite() {
        EXPECT_EQ(Trust(L"remove", "certificate.der"), 0u);
        EXPECT_EQ(Trust(L"check", "certificate.der"), 7u);
    }
    explicit ServerTest(bool holdBack = true) : ReporterTest(holdBack) { NewRequests(); }

    static std::string Url() { return Environment("ZO_CRASH_SERVER_URL"); }
    static std::filesystem::path ServerFile(const std::string& name) {
        return std::filesystem::path("Z:" + Environment("ZO_CRASH_SERVER_FOLDER")) / name;
    }
    static std::uint32_t Trust(const wchar_t* verb, const char* certificate) {
        const std::filesystem::path program = ProgramFolder() / "trust_certificate.exe";
        return RunChild(program.wstring(), {verb, ServerFile(certificate).wstring()}).exitCode;
    }
    static void Conditions(const std::string& lines) { WriteFileBytes(ServerFile("conditions.txt"), lines); }

    // The posts of this test since the last look.
    std::vector<Request> NewRequests() {
        std::vector<Request> requests;
        for (;; ++taken_) {
            const auto part = [this](const char* name) {
                return ReadFileBytes(ServerFile(zo::Format("requests/{:04}.{}", taken_ + 1, name)));
            };
            if (part("head").empty()) return requests;
            requests.push_back({part("head"), part("body"), part("document"), part("reply")});
        }
    }

    // From now on dumps are of a crash that the server has not seen.
    void NewCrash() {
        static int number = 0;
        Script(zo::Format("OutputStackTrace say crash {}\\n\n", ++number));
    }

    std::size_t taken_ = 0;
};

// The value between a field's tags; "?" when the document does not have it.
[[nodiscard]] inline std::string Field(const std::string& document, const std::string& name) {
    const std::string open = "\r\n<" + name + ">";
    const std::size_t start = document.find(open);
    const std::size_t end = document.find("</" + name + ">\r\n", start);
    if (start == std::string::npos || end == std::string::npos) return "?";
    return document.substr(start + open.size(), end - start - open.size());
}

}  // namespace zotest
