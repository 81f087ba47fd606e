#include "seal_paths.h"

#include <windows.h>

#include "error_text.h"
#include "format.h"
#include "long_path.h"
#include "manifest_text.h"
#include "owned_handles.h"
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
    if (attributes == INVALID_FILE_ATTRIBUTES) return {.error = GetLastError()};
    return {.attributes = attributes};
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

Ended CheckReplaceable(Output& out, const std::string& manifest, bool anyFile) {
    const PathState state = StateOf(manifest);
    if (state.error != ERROR_SUCCESS) return std::nullopt;  // nothing to replace, or creating the file gives the reason
    if (state.IsFolder()) {
        return out.Refuse(kExitUsage, zo::Format("{} is a folder, not a manifest file.", Quote(manifest)),
                          "Name the file to write the manifest to.");
    }
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const DWORD access = anyFile ? GENERIC_WRITE : GENERIC_READ | GENERIC_WRITE;
    const zo::OwnedFile file(CreateFileW(zo::LongForm(zo::WideFromUtf8(manifest).c_str()).c_str(), access, kShareAll,
                                         nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return RefuseUnwritable(out, manifest, GetLastError());
    // A manifest of a damaged or newer form is still one.
    constexpr std::string_view kMagic = zosigner::kMagicLine.substr(0, zosigner::kMagicLine.size() - 1);
    char beginning[kMagic.size()]{};
    DWORD read = 0;
    const bool isManifest = !anyFile && ReadFile(file.Get(), beginning, sizeof beginning, &read, nullptr) &&
                            std::string_view(beginning, read) == kMagic;
    if (anyFile || isManifest) return std::nullopt;
    return out.Refuse(kExitExists, zo::Format("{} already exists and is not a manifest.", Quote(manifest)),
                      "Nothing was signed. Check the path of the manifest, or use --force to replace the file.");
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

}  // namespace zoctl
