#include "reporter_fixture.h"

#include <cstring>
#include <sstream>

#include "format.h"
#include "owned_handles.h"
#include "text.h"

namespace zocrashtest {

namespace {

constexpr char kScriptVariable[] = "ZO_DEBUG_ENGINE_SCRIPT";
constexpr char kLogVariable[] = "ZO_DEBUG_ENGINE_LOG";

}  // namespace

Exports::Exports(const zotest::LoadedLibrary& library)
    : initialize(ZOTEST_FUNCTION(library, ZoCrashReport_Initialize)),
      uninitialize(ZOTEST_FUNCTION(library, ZoCrashReport_Uninitialize)),
      setLogger(ZOTEST_FUNCTION(library, ZoCrashReport_SetLogger)),
      setBodyScrambler(ZOTEST_FUNCTION(library, ZoCrashReport_SetBodyScrambler)),
      setTargetDrivers(ZOTEST_FUNCTION(library, ZoCrashReport_SetTargetDrivers)),
      notifyNetworkOk(ZOTEST_FUNCTION(library, ZoCrashReport_NotifyNetworkOk)),
      cancel(ZOTEST_FUNCTION(library, ZoCrashReport_Cancel)),
      resetCancel(ZOTEST_FUNCTION(library, ZoCrashReport_ResetCancel)),
      run(ZOTEST_FUNCTION(library, ZoCrashReport_Run)),
      uploadSingleDump(ZOTEST_FUNCTION(library, ZoCrashReport_UploadSingleDump)) {}

ReporterTest::ReporterTest(bool holdBack) {
    std::filesystem::create_directories(dumps_);
    SetEnvironmentVariableA(kScriptVariable, (folder_ / "script").string().c_str());
    SetEnvironmentVariableA(kLogVariable, (folder_ / "engine.log").string().c_str());
    api_.setLogger(Log, this);
    if (holdBack) api_.setBodyScrambler(Refuse, this);
}

ReporterTest::~ReporterTest() {
    SetEnvironmentVariableA(kScriptVariable, nullptr);
    SetEnvironmentVariableA(kLogVariable, nullptr);
}

void ReporterTest::Configure() {
    ZoCrashReportConfig config = config_;
    if (config.minidumpDir == nullptr) config.minidumpDir = dumps_.c_str();
    if (config.compareFilePath == nullptr) config.compareFilePath = record_.c_str();
    ASSERT_EQ(api_.initialize(&config), 0);
}

std::filesystem::path ReporterTest::AddDump(const std::string& name, const char* kind, std::uint64_t time) {
    const std::filesystem::path source = zotest::ProgramFolder() / "dumps" / kind;
    const std::filesystem::path path = dumps_ / name;
    zotest::WriteFileBytes(path, *kind != '\0' ? zotest::ReadFileBytes(source) : "no dump");
    SetLastWrite(path, time);
    return path;
}

void ReporterTest::SetRecord(std::uint64_t value) {
    zotest::WriteFileBytes(record_, std::string(reinterpret_cast<const char*>(&value), sizeof(value)));
}

std::uint64_t ReporterTest::Record() const {
    const std::string bytes = zotest::ReadFileBytes(record_);
    std::uint64_t value = 0;
    if (bytes.size() == sizeof(value)) std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
}

void ReporterTest::Script(const std::string& script) {
    zotest::WriteFileBytes(folder_ / "script", script);
}

std::vector<std::string> ReporterTest::EngineCalls() {
    std::istringstream text(zotest::ReadFileBytes(folder_ / "engine.log"));
    zotest::RemoveTree((folder_ / "engine.log").wstring());
    std::vector<std::string> calls;
    for (std::string line; std::getline(text, line);) {
        if (const std::size_t at = line.find(folder_.Path().string()); at != std::string::npos) {
            line.replace(at, folder_.Path().string().size(), "~");
        }
        calls.push_back(line.substr(0, line.find(" = ")));
    }
    return calls;
}

std::vector<std::string> ReporterTest::TakeLog() {
    return std::exchange(log_, {});
}

std::string ReporterTest::Counters() const {
    return zo::Format("{} {} {} {} {} {} {}", stats_.dumpsFound, stats_.dumpsSelected, stats_.queriesAccepted,
                      stats_.queriesAlreadyKnown, stats_.queriesFailed, stats_.uploadsSucceeded, stats_.uploadsFailed);
}

void ReporterTest::Log(void* context, std::int32_t level, const wchar_t* message) {
    auto& self = *static_cast<ReporterTest*>(context);
    std::string line = zo::Format("{} {}", level, zo::Utf8FromWide(message));
    const std::string folder = zo::Utf8FromWide(self.folder_.Path().wstring());
    for (std::size_t at; (at = line.find(folder)) != std::string::npos;)
        line.replace(at, folder.size(), "~");
    self.log_.push_back(line);
    if (self.onLog_) self.onLog_(line);
}

std::int32_t ReporterTest::Refuse(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t*,
                                  std::uint32_t, std::uint32_t*) {
    auto& self = *static_cast<ReporterTest*>(context);
    self.documents_.emplace_back(in, in + inLength);
    if (self.onDocument_) self.onDocument_();
    return kRefused;
}

std::string Field(const std::string& document, const std::string& name) {
    const std::string open = "\r\n<" + name + ">";
    const std::size_t start = document.find(open);
    const std::size_t end = document.find("</" + name + ">\r\n", start);
    if (start == std::string::npos || end == std::string::npos) return "?";
    return document.substr(start + open.size(), end - start - open.size());
}

void SetLastWrite(const std::filesystem::path& file, std::uint64_t time) {
    const zo::OwnedFile handle(CreateFileW(file.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                           nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    const FILETIME value{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    if (!SetFileTime(handle.Get(), nullptr, nullptr, &value)) {
        throw std::runtime_error("cannot set the time of " + file.string());
    }
}

}  // namespace zocrashtest
