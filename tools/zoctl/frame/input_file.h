#pragma once

// Files that a command reads its input from or writes to: failures and mistakes reported alike.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "json_reader.h"
#include "output.h"

namespace zoctl {

// Ends the command with kExitUsage for a folder; reading one fails with "access denied", which misleads.
[[nodiscard]] Ended RefuseFolderAsFile(Output& out, const std::string& path);
[[nodiscard]] Ended ReadInputFile(Output& out, const std::string& path, std::string& bytes);
// Ends the command with kExitUsage when there are any.
[[nodiscard]] Ended ReportMistakes(Output& out, const std::string& path, const std::vector<Mistake>& mistakes,
                                   std::string_view advice);

// The exit code of a folder or file that cannot be written.
[[nodiscard]] int WriteExitCode(std::uint32_t error);
// Ends a command for which the library could not create or read a folder.
int RefuseFolder(Output& out, const std::filesystem::filesystem_error& error, const Json& facts = Json::object());

}  // namespace zoctl
