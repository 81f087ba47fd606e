#include "crash_trial.h"

#include <windows.h>

#include <future>
#include <utility>

#include "command_line.h"
#include "crash_outcome.h"
#include "error_text.h"
#include "errors.h"
#include "format.h"
#include "owned_handles.h"
#include "text.h"

namespace zoctl {

namespace {

// How long a cancelled trial may take to remove its temporary files before it is ended by force.
constexpr DWORD kCancelMs = 5'000;

std::wstring TrialCommandLine(const std::wstring& program, const CrashOptions& options) {
    std::wstring line = zo::QuotedArgument(program) + L" crash " + (options.file.empty() ? L"list" : L"analyse");
    const auto add = [&line](const std::string& text) { line += L' ' + zo::QuotedArgument(zo::WideFromUtf8(text)); };
    add("--json");
    for (const std::string& target : options.targets)
        add("--target=" + target);
    if (!options.file.empty()) {
        add("--");  // the name may begin with a hyphen
        add(options.file);
        return line;
    }
    if (!options.dumpFolder.empty()) add("--dumps=" + options.dumpFolder);
    if (!options.record.empty()) add("--record=" + options.record);
    if (options.maxBytes != 0) add(zo::Format("--max-bytes={}", options.maxBytes));
    return line;
}

class TrialProcess {
  public:
    // Gives the Win32 error.
    [[nodiscard]] std::uint32_t Start(const CrashOptions& options) {
        std::wstring program(0x8000, L'\0');  // the longest path there is
        program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
        std::wstring line = TrialCommandLine(program, options);

        SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        zo::OwnedKernelObject write;
        if (!CreatePipe(output_.Out(), write.Out(), &inherited, 0)) return GetLastError();
        SetHandleInformation(output_.Get(), HANDLE_FLAG_INHERIT, 0);
        const zo::OwnedFile nothing(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0,
                                                nullptr));
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = nothing.Get();
        startup.hStdOutput = write.Get();
        startup.hStdError = nothing.Get();  // what it says there is in its document, too
        PROCESS_INFORMATION information{};
        if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                            &information)) {
            return GetLastError();
        }
        process_.Reset(information.hProcess);
        const zo::OwnedKernelObject thread(information.hThread);
        return ERROR_SUCCESS;
    }

    // Its standard output. The console's Ctrl-C reaches it as well, and it then ends by itself.
    [[nodiscard]] std::string Finish(const Cancellation& cancellation) {
        auto text = std::async(std::launch::async, [this] { return ReadOutput(); });
        while (WaitForSingleObject(process_.Get(), 100) != WAIT_OBJECT_0) {
            if (!cancellation.Requested()) continue;
            if (WaitForSingleObject(process_.Get(), kCancelMs) != WAIT_OBJECT_0) {
                TerminateProcess(process_.Get(), static_cast<UINT>(kExitCancelled));
            }
        }
        return text.get();
    }

    [[nodiscard]] DWORD ExitCode() const {
        DWORD code = 0;
        return GetExitCodeProcess(process_.Get(), &code) ? code : static_cast<DWORD>(kExitFailed);
    }

  private:
    [[nodiscard]] std::string ReadOutput() const {
        std::string text;
        char block[4096];
        for (DWORD size = 0; ReadFile(output_.Get(), block, sizeof(block), &size, nullptr);)
            text.append(block, size);
        return text;
    }

    zo::OwnedKernelObject process_;
    zo::OwnedKernelObject output_;
};

// What a run with these options would have come to if it had held its documents back.
CrashResult ResultFromDocument(const Json& document, const CrashOptions& options) {
    CrashResult result;
    if (document.contains("status")) {
        const std::string value = document.at("status").at("value");
        result.status = static_cast<std::int32_t>(std::stoul(value, nullptr, 16));
    }
    for (const Json& message : document.at("messages"))
        result.messages.push_back({message.at("level"), message.at("text")});
    for (const Json& entry : document.at("dumps")) {
        CrashDumpLine dump = DumpFromJson(entry);
        dump.selected = dump.failure == 0 && (options.all || !dump.matched.empty());
        if (dump.selected) ++result.heldBack;
        result.dumps.push_back(std::move(dump));
    }
    result.stats.dumpsFound = document.at("counters").at("found");
    result.stats.dumpsSelected = result.heldBack;
    return result;
}

}  // namespace

CrashTrial TryCrashReporter(const CrashOptions& options, const Cancellation& cancellation) {
    CrashTrial trial;
    TrialProcess process;
    if (const std::uint32_t error = process.Start(options); error != ERROR_SUCCESS) {
        trial.failure = "The process that analyses the dumps first could not be started: " + zo::ErrorText(error);
        return trial;
    }
    const Json document = Json::parse(process.Finish(cancellation), nullptr, false);
    if (document.is_discarded()) {
        trial.failure = zo::Format(
            "The debugger engine ended its process while it analysed the dumps (exit code {:#x}).", process.ExitCode());
    } else if (!document.contains("dumps")) {
        trial.failure = document.value("message", "The dumps could not be analysed.");
    } else {
        trial.result = ResultFromDocument(document, options);
    }
    trial.result.cancelled = cancellation.Requested() || process.ExitCode() == kExitCancelled;
    return trial;
}

}  // namespace zoctl
