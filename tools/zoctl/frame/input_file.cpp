#include "input_file.h"

#include <windows.h>

#include "error_text.h"
#include "files.h"
#include "format.h"
#include "long_path.h"
#include "text.h"
#include "zoprotector_status.h"

namespace zoctl {

Ended RefuseFolderAsFile(Output& out, const std::string& path) {
    const DWORD attributes = GetFileAttributesW(zo::LongForm(zo::WideFromUtf8(path).c_str()).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) return std::nullopt;
    return out.Refuse(kExitUsage, Quote(path) + " is a folder, not a file.", "Name the file.");
}

Ended ReadInputFile(Output& out, const std::string& path, std::string& bytes) {
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), bytes);
    if (read) return std::nullopt;
    if (const Ended ended = RefuseFolderAsFile(out, path)) return ended;
    return out.Fail(ZOP_STATUS_FROM_WIN32(read.error), Subject::kAny, "read " + Quote(path));
}

Ended ReportMistakes(Output& out, const std::string& path, const std::vector<Mistake>& mistakes,
                     std::string_view advice) {
    if (mistakes.empty()) return std::nullopt;
    Json list = Json::array();
    TextTable table({"WHERE", "MISTAKE"});
    for (const Mistake& mistake : mistakes) {
        list.push_back({{"pointer", mistake.pointer}, {"message", mistake.message}});
        table.Add({mistake.pointer.empty() ? "(whole file)" : mistake.pointer, mistake.message});
    }
    out.Table(table);
    return out.Refuse(kExitUsage, zo::Format("{} has {}.", Quote(path), Counted(mistakes.size(), "mistake")), advice,
                      {{"file", path}, {"mistakes", list}});
}

int WriteExitCode(std::uint32_t error) {
    return error == ERROR_ACCESS_DENIED || error == ERROR_WRITE_PROTECT ? kExitAccess : kExitFailed;
}

int RefuseFolder(Output& out, const std::filesystem::filesystem_error& error, const Json& facts) {
    const auto code = static_cast<std::uint32_t>(error.code().value());
    const bool creating = std::string_view(error.what()).find("create_directories") != std::string_view::npos;
    return out.Refuse(WriteExitCode(code),
                      zo::Format("The folder {} cannot be {}: {}", Quote(zo::Utf8FromWide(error.path1().wstring())),
                                 creating ? "created" : "read", zo::ErrorText(code)),
                      creating ? "Check the path, and that you may create folders there; then try again."
                               : "Check the path, and that you may read the folder; then try again.",
                      facts);
}

}  // namespace zoctl
