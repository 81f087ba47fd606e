#pragma once

// Files that a command reads its input from: failures and mistakes reported alike.

#include <string>
#include <vector>

#include "json_reader.h"
#include "output.h"

namespace zoctl {

[[nodiscard]] Ended ReadInputFile(Output& out, const std::string& path, std::string& bytes);
// Ends the command with kExitUsage when there are any.
[[nodiscard]] Ended ReportMistakes(Output& out, const std::string& path, const std::vector<Mistake>& mistakes,
                                   std::string_view advice);

}  // namespace zoctl
