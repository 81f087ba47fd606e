#pragma once

// The paths that the sealing commands are given, looked at before the library is called: it reports a folder that is
// gone as one missing file after the other, and it replaces whatever file is named as the manifest.

#include <cstdint>
#include <filesystem>
#include <string>

#include "input_file.h"
#include "output.h"

namespace zoctl {

// What is at a path of any length.
struct PathState {
    std::uint32_t attributes = 0;
    std::uint32_t error = 0;  // Win32; not 0 when there is nothing, or when that cannot be determined

    // Certainly nothing. False when it cannot be determined.
    [[nodiscard]] bool Absent() const;
    [[nodiscard]] bool IsFolder() const;
};

[[nodiscard]] PathState StateOf(const std::string& path);

// Ends the command when the folder to sign or to verify is not there.
[[nodiscard]] Ended CheckFolder(Output& out, const std::string& folder);

// Ends the command when the manifest's name is empty.
[[nodiscard]] Ended CheckManifestName(Output& out, const std::string& manifest);

// Ends the signing when the file that the manifest would replace is not a manifest (unless told to replace any file) or
// cannot be written.
[[nodiscard]] Ended CheckReplaceable(Output& out, const std::string& manifest, bool anyFile);

// Ends a command whose manifest cannot be read, or cannot be written. error: Win32.
int RefuseUnreadable(Output& out, const std::string& manifest, std::uint32_t error, const Json& facts = Json::object());
int RefuseUnwritable(Output& out, const std::string& manifest, std::uint32_t error, const Json& facts = Json::object());

}  // namespace zoctl
