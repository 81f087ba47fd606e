#pragma once

// What the engine has from the process around it: the script and the record of calls, both named by environment
// variables, or the script as a file beside the library.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine_script.h"

namespace zoengine {

// The script's lines for this step. It is read anew at each step, so that a caller can change it at any time. A script
// that cannot be understood is recorded with the line that is wrong.
[[nodiscard]] std::vector<ScriptLine> ScriptFor(std::string_view step, std::string_view dumpName);

// Appends "call = 0x........" to the record, when there is one.
void RecordCall(std::string_view call, std::int32_t result);

}  // namespace zoengine
