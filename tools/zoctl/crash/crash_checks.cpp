#include "crash_checks.h"

#include <windows.h>

#include "crash_files.h"
#include "error_text.h"
#include "errors.h"
#include "files.h"
#include "format.h"
#include "long_path.h"
#include "reporter_messages.h"
#include "server_probe.h"
#include "text.h"

namespace zoctl {

namespace {

DWORD AttributesOf(const std::string& path) {
    return GetFileAttributesW(zo::LongForm(zo::WideFromUtf8(path).c_str()).c_str());
}

bool IsFolder(DWORD attributes) {
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

Ended CheckServer(Output& out, const std::string& server) {
    if (IsServerUrl(server)) return std::nullopt;
    return out.Refuse(kExitUsage, Quote(server) + " is not the address of a crash server.",
                      "Give https:// in lower case, a host, and if needed a port and a path: "
                      "https://crash.example/crash.");
}

// A folder that exists may still deny access: the driver then copies it.
Ended CheckDumpFolder(Output& out, const std::string& folder) {
    const DWORD attributes = AttributesOf(folder);
    const DWORD error = GetLastError();
    if (IsFolder(attributes)) return std::nullopt;
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        return out.Refuse(kExitUsage, "The dump folder " + Quote(folder) + " is not a folder.",
                          "Name the folder; \"zoctl crash analyse\" and \"upload\" accept a single dump.");
    }
    if (error == ERROR_ACCESS_DENIED) return std::nullopt;
    return out.Fail(zo::HresultFromWin32(error == ERROR_FILE_NOT_FOUND ? ERROR_PATH_NOT_FOUND : error), Subject::kAny,
                    "use the dump folder " + Quote(folder));
}

Ended CheckDump(Output& out, const std::string& file) {
    if (!IsFolder(AttributesOf(file))) return std::nullopt;
    return out.Refuse(kExitUsage, Quote(file) + " is a folder, not a dump.",
                      "Name one dump, or process a folder with --dumps of \"zoctl crash list\" or \"run\".");
}

// The library takes a record that cannot be read for an empty one, under which every dump is new. It shares the file
// with readers only, and so does this look.
Ended CheckRecord(Output& out, const std::string& named) {
    const std::filesystem::path record = CrashRecordPath(named);
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(record.c_str(), bytes);
    if (read || read.Absent() || record.empty()) return std::nullopt;
    return RefuseFile(out, "read the record of processed dumps", record, read.error);
}

}  // namespace

int RefuseFile(Output& out, const char* attempt, const std::filesystem::path& file, std::uint32_t error) {
    return out.Refuse(
        FullStatusText(zo::HresultFromWin32(error), Subject::kAny).exitCode,
        zo::Format("Could not {} {}: {}", attempt, Quote(zo::Utf8FromWide(file.wstring())), zo::ErrorText(error)),
        "Check the path, and that it is a file to which you have access.");
}

Ended CheckCrashOptions(Output& out, const CrashOptions& options, CrashMode mode) {
    if (mode != CrashMode::kShow && !options.server.empty()) {
        if (const Ended ended = CheckServer(out, options.server)) return ended;
    }
    if (!options.file.empty()) return CheckDump(out, options.file);
    if (!options.dumpFolder.empty()) {
        if (const Ended ended = CheckDumpFolder(out, options.dumpFolder)) return ended;
    }
    return CheckRecord(out, options.record);
}

CrashFailure DescribeCrashFailure(const CrashResult& result, const CrashOptions& options, CrashMode mode) {
    const auto logged = [&result](const char* format) {
        for (const CrashMessage& message : result.messages) {
            if (message.text == format || !zocrash::MessageParts(format, message.text).empty()) return true;
        }
        return false;
    };
    if (logged(zocrash::kEngineFailedMessage)) return {"set up the debugger engine", Subject::kEngine};
    if (logged(zocrash::kInternetFailedMessage)) return {"open an Internet session", Subject::kCrash};
    if (logged(zocrash::kCopyFailedMessage)) {
        return {"have the driver copy the dump folder, to which access is denied", Subject::kCopy};
    }
    if (logged(zocrash::kNowhereToStageMessage)) {
        return {"copy the dump folder, to which access is denied, to the temporary folder", Subject::kCrash};
    }
    if (options.file.empty()) return {"find a dump folder", Subject::kCrash};
    return {(mode == CrashMode::kShow ? "analyse " : "report ") + Quote(options.file), Subject::kCrash};
}

}  // namespace zoctl
