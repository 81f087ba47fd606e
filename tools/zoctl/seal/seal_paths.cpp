#include "seal_paths.h"

#include <windows.h>

#include "error_text.h"
#include "format.h"
#include "long_path.h"
#include "text.h"

namespace zoctl {

namespace {

// Of a folder or file that cannot be written.
int WriteExitCode(std::uint32_t error) {
    return error == ERROR_ACCESS_DENIED || error == ERROR_WRITE_PROTECT ? kExitAccess : kExitFailed;
}

}  // namespace

bool PathState::Absent() const {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool PathState::IsFolder() const {
    return error == ERROR_SUCCESS && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

PathState StateOf(const std::string& path) {
    const DWORD attributes = GetFileAttributesW(zo::LongForm(zo::WideFromUtf8(path).c_str()).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return {0, GetLastError()};
    return {attributes, ERROR_SUCCESS};
}

Ended CheckFolder(Output& out, const std::string& folder) {
    if (folder.empty()) return out.Refuse(kExitUsage, "The name of the folder is empty.", "Name the folder.");
    const PathState state = StateOf(folder);
    if (state.IsFolder()) return std::nullopt;
    if (state.error == ERROR_ACCESS_DENIED) {
        return out.Refuse(kExitAccess, zo::Format("Access to the folder {} was denied.", Quote(folder)),
                          "Check that you have access to the folder and to the folders above it.");
    }
    const std::string reason = state.error == ERROR_SUCCESS ? "is a file, not a folder."
                               : state.Absent()             ? "does not exist."
                                                            : "cannot be found: " + zo::ErrorText(state.error);
    return out.Refuse(kExitNoDriver, zo::Format("The folder {} {}", Quote(folder), reason),
                      "Check the path of the folder.");
}

Ended CheckManifestName(Output& out, const std::string& manifest) {
    if (!manifest.empty()) return std::nullopt;
    return out.Refuse(kExitUsage, "The name of the manifest is empty.", "Name the manifest file.");
}

int RefuseUnreadable(Output& out, const std::string& manifest, std::uint32_t error, const Json& facts) {
    const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    const int other = error == ERROR_ACCESS_DENIED ? kExitAccess : kExitUnreadable;
    return out.Refuse(absent ? kExitNoDriver : other,
                      zo::Format("The manifest {} {}", Quote(manifest),
                                 absent ? "does not exist." : "cannot be read: " + zo::ErrorText(error)),
                      "Check the path of the manifest.", facts);
}

int RefuseUnwritable(Output& out, const std::string& manifest, std::uint32_t error, const Json& facts) {
    return out.Refuse(
        WriteExitCode(error),
        zo::Format("The manifest {} cannot be written: {}", Quote(manifest), zo::ErrorText(error)),
        "Check that you may write to the file, that it is not marked read-only, and that no other program "
        "uses it; then sign again.",
        facts);
}

int RefuseFolder(Output& out, const std::filesystem::filesystem_error& error, const Json& facts) {
    const auto code = static_cast<std::uint32_t>(error.code().value());
    return out.Refuse(WriteExitCode(code),
                      zo::Format("The folder {} cannot be created: {}",
                                 Quote(zo::Utf8FromWide(error.path1().wstring())), zo::ErrorText(code)),
                      "Check the path, and that you may create folders there; then try again.", facts);
}

}  // namespace zoctl
