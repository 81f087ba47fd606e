#include "crash_session.h"

#include <windows.h>

#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "channel.h"
#include "console.h"
#include "crash_files.h"
#include "error_text.h"
#include "errors.h"
#include "files.h"
#include "owned_handles.h"
#include "reporter_messages.h"
#include "temporary_file.h"
#include "text.h"

namespace zoctl {

namespace {

// A copy of the record that the reporter may move on as it likes. An empty one would make every dump look new, so an
// existing record must be readable.
void CopyRecord(const std::filesystem::path& record, TemporaryFile& copy) {
    if (copy.Create(L"zoc") != ERROR_SUCCESS) {
        throw std::runtime_error("no temporary file can be made for a copy of the dedupe record");
    }
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(record.c_str(), bytes);
    std::uint32_t error = read.Absent() ? ERROR_SUCCESS : read.error;
    if (error == ERROR_SUCCESS) {
        const zo::OwnedFile file(
            CreateFileW(copy.Path().c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        error = file ? zo::WriteWhole(file.Get(), bytes) : GetLastError();
    }
    if (error != ERROR_SUCCESS) {
        throw std::runtime_error("the dedupe record cannot be copied: " + zo::ErrorText(error));
    }
}

// The targets as the reporter compares them, with what the engine prints: in the ANSI code page.
std::vector<std::string> ComparedNames(const CrashOptions& options) {
    std::vector<std::string> names;
    for (const std::string& target : options.targets)
        names.push_back(zo::AnsiFromWide(zo::WideFromUtf8(target)));
    return names;
}

// From the file itself, while it is there: a copy that the driver made is deleted when the run ends.
DumpHeader HeaderOf(const std::string& path) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const zo::OwnedFile file(CreateFileW(zo::WideFromUtf8(path).c_str(), GENERIC_READ, kShareAll, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return {};
    return ReadDumpHeader([&file](std::uint64_t offset, std::size_t size) {
        std::string bytes(size, '\0');
        const LARGE_INTEGER place{.QuadPart = static_cast<LONGLONG>(offset)};
        DWORD read = 0;
        const BOOL done = SetFilePointerEx(file.Get(), place, nullptr, FILE_BEGIN) &&
                          ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(size), &read, nullptr);
        bytes.resize(done ? read : 0);  // a header without its bytes is not sound
        return bytes;
    });
}

std::string FieldOf(const std::string& document, const std::string& field) {
    const std::string open = "\r\n<" + field + ">";
    const std::size_t start = document.find(open);
    if (start == std::string::npos) return "";
    return document.substr(start + open.size(), document.find("</" + field + ">", start) - start - open.size());
}

// Collects the reporter's messages during one call.
class Listener {
  public:
    Listener(CrashResult& result, const CrashOptions& options, const std::function<void(const CrashMessage&)>& progress)
        : result_(result), progress_(progress) {
        // A message contains narrow text as if it were UTF-8, so such a name differs from what was given.
        for (std::size_t i = 0; const std::string& name : ComparedNames(options))
            given_.emplace(zo::Utf8FromWide(zo::WideFromUtf8(name)), options.targets[i++]);
    }

    static void Log(void* context, std::int32_t level, const wchar_t* message) {
        static_cast<Listener*>(context)->Take({level, zo::Utf8FromWide(message)});
    }

    // A scrambler that refuses every document and keeps it.
    static std::int32_t HoldBack(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t*,
                                 std::uint32_t, std::uint32_t*) {
        CrashResult& result = static_cast<Listener*>(context)->result_;
        ++result.heldBack;
        if (!result.dumps.empty()) {
            CrashDumpLine& dump = result.dumps.back();
            dump.document.assign(in, in + inLength);
            dump.signature = FieldOf(dump.document, "CrashSignature");
            dump.address = FieldOf(dump.document, "ErrAddr");
        }
        return zo::kFail;
    }

  private:
    void Take(CrashMessage message) {
        using zocrash::MessageParts;
        if (const auto analysed = MessageParts(zocrash::kDumpAnalysedMessage, message.text); !analysed.empty()) {
            TakeAnalysed(analysed[0], analysed[1], analysed[2]);
        } else if (const auto failed = MessageParts(zocrash::kDumpFailedMessage, message.text); !failed.empty()) {
            const auto status = std::stoul(std::string(failed[1]), nullptr, 16);
            result_.dumps.push_back({.path = std::string(failed[0]), .failure = static_cast<std::int32_t>(status)});
            result_.dumps.back().header = HeaderOf(result_.dumps.back().path);
        }
        progress_(message);
        result_.messages.push_back(std::move(message));
    }

    void TakeAnalysed(std::string_view path, std::string_view matched, std::string_view selected) {
        CrashDumpLine dump{.path = std::string(path), .selected = selected == "true"};
        dump.header = HeaderOf(dump.path);
        std::istringstream names{std::string(matched)};
        for (std::string name; std::getline(names, name, '|');) {
            const auto given = given_.find(name);
            dump.matched.push_back(given == given_.end() ? name : given->second);
        }
        result_.dumps.push_back(std::move(dump));
    }

    CrashResult& result_;
    const std::function<void(const CrashMessage&)>& progress_;
    std::map<std::string, std::string> given_;  // target as a message shows it, as the command line gave it
};

void Configure(const CrashOptions& options, CrashMode mode, const std::filesystem::path& record,
               const Cancellation& cancellation) {
    const std::wstring server = zo::WideFromUtf8(options.server);
    const std::wstring appName = zo::WideFromUtf8(options.appName);
    const std::wstring appVersion = zo::WideFromUtf8(options.appVersion);
    const std::wstring folder = zo::WideFromUtf8(options.dumpFolder);
    ZoCrashReportConfig config{};
    config.serverUrl = server.c_str();
    config.appName = appName.c_str();
    config.appVersion = appVersion.c_str();
    config.lcid = options.lcid;
    config.minidumpDir = folder.c_str();
    config.compareFilePath = record.c_str();
    config.uploadAll = options.all || mode == CrashMode::kShow;
    config.maxDumpBytes = options.maxBytes;
    ZoCrashReport_Initialize(&config);
    if (cancellation.Requested()) ZoCrashReport_Cancel();  // Initialize took back a cancel that came before it

    const std::vector<std::string> names = ComparedNames(options);
    std::vector<const char*> targets;
    for (const std::string& name : names)
        targets.push_back(name.c_str());
    ZoCrashReport_SetTargetDrivers(targets.data(), static_cast<std::uint32_t>(targets.size()));
}

std::int32_t Call(const CrashOptions& options, ZoCrashRunStats& stats) {
    // The user of the command knows whether the network is up.
    ZoCrashReport_NotifyNetworkOk();
    if (options.file.empty()) return ZoCrashReport_Run(&stats);
    return ZoCrashReport_UploadSingleDump(zo::WideFromUtf8(options.file).c_str(), &stats);
}

}  // namespace

std::string CrashServer(const CrashOptions& options) {
    return options.server.empty() ? ZO_CRASH_SERVER_URL : options.server;
}

CrashResult RunCrashReporter(const CrashOptions& options, CrashMode mode,
                             const std::function<void(const CrashMessage&)>& progress) {
    CrashResult result;
    Listener listener(result, options, progress);
    ZoCrashReport_SetLogger(Listener::Log, &listener);

    // The driver copies a dump folder that denies access. Where there is no driver, such a folder stays closed.
    std::optional<Channel> channel;
    if (options.file.empty()) channel.emplace();
    const std::filesystem::path record = CrashRecordPath(options.record);
    const Cancellation cancellation([] { ZoCrashReport_Cancel(); });
    if (mode == CrashMode::kSend) {
        Configure(options, mode, record, cancellation);
        if (options.plain) ZoCrashReport_SetBodyScrambler(nullptr, nullptr);
        result.status = Call(options, result.stats);
    } else {
        TemporaryFile copy;
        CopyRecord(record, copy);
        Configure(options, mode, copy.Path(), cancellation);
        ZoCrashReport_SetBodyScrambler(Listener::HoldBack, &listener);
        result.status = Call(options, result.stats);
    }
    ZoCrashReport_SetLogger(nullptr, nullptr);
    result.cancelled = cancellation.Requested();
    return result;
}

}  // namespace zoctl
