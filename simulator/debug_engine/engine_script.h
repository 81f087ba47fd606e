#pragma once

// The script that tells the engine where to misbehave. Pure: text in, values out. README.md holds the format.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zoengine {

enum class Act { kFail, kHang, kBabble, kSay, kNull, kDelete, kGrow };

struct ScriptLine {
    std::string dump;  // file name of the dump that it is for, empty for every one
    std::string step;
    Act act = Act::kFail;
    std::uint64_t number = 0;  // an HRESULT, milliseconds or bytes
    std::string text;          // of kSay
};

// False when a line cannot be understood; `error` then quotes it. What was understood before it is kept.
[[nodiscard]] bool ParseScript(std::string_view text, std::vector<ScriptLine>& lines, std::string& error);

// The lines for a step, in the script's order, while a dump of this name (empty: none) is open.
[[nodiscard]] std::vector<ScriptLine> LinesFor(const std::vector<ScriptLine>& lines, std::string_view step,
                                               std::string_view dumpName);

// Noise of an exact length, the same for the same length: lines of all lengths, bytes of all values except 0.
[[nodiscard]] std::string Babble(std::uint64_t length);

}  // namespace zoengine
