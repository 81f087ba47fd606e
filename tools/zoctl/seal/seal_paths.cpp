#include "seal_paths.h"

#include <windows.h>

#include "error_text.h"
#include "format.h"
#include "long_path.h"
#include "text.h"

namespace zoctl {

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

}  // namespace zoctl
