#include "reporter_fixture.h"

#include <cstring>

#include "child_process.h"
#include "format.h"
#include "owned_handles.h"
#include "text.h"

namespace zocrashtest {

ReporterTest::ReporterTest(bool holdBack) {
    std::filesystem::create_directories(dumps_);
    SetEnvironmentVariableA("ZO_DEBUG_ENGINE_SCRIPT", (folder_ / "script").string().c_str());
    SetEnvironmentVariableA("ZO_DEBUG_ENGINE_LOG", (folder_ / "engine.log").string().c_str());
    api_.setLogger(Log, this);
    if (holdBack) api_.setScrambler(Refuse, this);
}

ReporterTest::~ReporterTest() {
    SetEnvironmentVariableA("ZO_DEBUG_ENGINE_SCRIPT", nullptr);
    SetEnvironmentVariableA("ZO_DEBUG_ENGINE_LOG", nullptr);
}

void ReporterTest::Configure() {
    ZoCrashReportConfig config = config_;
    if (config.minidumpDir == nullptr) config.minidumpDir = dumps_.c_str();
    if (config.compareFilePath == nullptr) config.compareFilePath = record_.c_str();
    ASSERT_EQ(api_.initialize(&config), 0);
}

std::filesystem::path ReporterTest::AddDump(const std::string& name, const char* kind, std::uint64_t lastWrite) {
    const std::filesystem::path source = zotest::ProgramFolder() / "dumps" / kind;
    const std::filesystem::path path = dumps_ / name;
    zotest::WriteFileBytes(path, *kind != '\0' ? zotest::ReadFileBytes(source) : "no dump");
    SetLastWrite(path, lastWrite);
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

std::string ReporterTest::Shortened(std::string line) const {
    const std::string folder = zo::Utf8FromWide(folder_.Path().wstring());
    for (std::size_t at; (at = line.find(folder)) != std::string::npos;)
        line.replace(at, folder.size(), "~");
    return line;
}

Strings ReporterTest::EngineCalls() {
    const std::string text = zotest::ReadFileBytes(folder_ / "engine.log");
    zotest::RemoveTree((folder_ / "engine.log").wstring());
    Strings calls;
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = text.substr(start, end - start);
        calls.push_back(Shortened(line.substr(0, line.find(" = "))));
    }
    return calls;
}

std::string ReporterTest::Run() {
    stats_ = {};
    const std::int32_t status = api_.run(&stats_);
    return Outcome(status, stats_);
}

std::string ReporterTest::Upload(const std::filesystem::path& dump) {
    stats_ = {};
    const std::int32_t status = api_.upload(dump.c_str(), &stats_);
    return Outcome(status, stats_);
}

std::string ReporterTest::RunAnew() {
    RemoveRecord();
    Configure();
    documents_.clear();
    EngineCalls();
    TakeLog();
    return Run();
}

void ReporterTest::Log(void* context, std::int32_t level, const wchar_t* message) {
    auto& self = *static_cast<ReporterTest*>(context);
    self.log_.push_back(self.Shortened(zo::Format("{} {}", level, zo::Utf8FromWide(message))));
    if (self.onLog_) self.onLog_(self.log_.back());
}

std::int32_t ReporterTest::Refuse(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t*,
                                  std::uint32_t, std::uint32_t*) {
    auto& self = *static_cast<ReporterTest*>(context);
    self.documents_.emplace_back(in, in + inLength);
    if (self.onDocument_) self.onDocument_();
    return E_FAIL;
}

std::string ServerTest::Url() {
    char value[1024] = "";
    GetEnvironmentVariableA("ZO_CRASH_SERVER_URL", value, sizeof(value));
    return value;
}

std::filesystem::path ServerTest::ServerFile(const std::string& name) {
    char value[1024] = "";
    GetEnvironmentVariableA("ZO_CRASH_SERVER_FOLDER", value, sizeof(value));
    return std::filesystem::path("Z:" + std::string(value)) / name;
}

std::uint32_t ServerTest::Trust(const wchar_t* verb, const char* certificate) {
    const std::filesystem::path program = zotest::ProgramFolder() / "trust_certificate.exe";
    return zotest::RunChild(program.wstring(), {verb, ServerFile(certificate).wstring()}).exitCode;
}

std::size_t ServerTest::Posts() {
    std::size_t count = 0;
    while (std::filesystem::exists(ServerFile(zo::Format("requests/{:04}.head", count + 1))))
        ++count;
    return count;
}

std::vector<Request> ServerTest::Requests(std::size_t before) {
    std::vector<Request> requests;
    for (std::size_t i = before + 1; i <= Posts(); ++i) {
        const auto part = [&](const char* name) {
            return zotest::ReadFileBytes(ServerFile(zo::Format("requests/{:04}.{}", i, name)));
        };
        requests.push_back({part("head"), part("body"), part("document"), part("reply")});
    }
    return requests;
}

void ServerTest::NewCrash() {
    static int number = 0;
    Script(zo::Format("OutputStackTrace say crash {}\\n\n", ++number));
}

std::string Outcome(std::int32_t status, const ZoCrashRunStats& stats) {
    return zo::Format("{:x}: {} {} {} {} {} {} {}", static_cast<std::uint32_t>(status), stats.dumpsFound,
                      stats.dumpsSelected, stats.queriesAccepted, stats.queriesAlreadyKnown, stats.queriesFailed,
                      stats.uploadsSucceeded, stats.uploadsFailed);
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
