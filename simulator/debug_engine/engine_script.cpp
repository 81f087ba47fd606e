#include "engine_script.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace zoengine {
namespace {

constexpr std::array kSteps{
    "Load",         "DebugCreate",      "QueryInterface",   "SetOutputCallbacks",      "SetOutputMask", "OpenDumpFile",
    "WaitForEvent", "ReadBugCheckData", "OutputStackTrace", "GetLastEventInformation", "EndSession"};

struct ActName {
    std::string_view name;
    Act act;
    bool takesNumber;
};
constexpr std::array kActs{ActName{"fail", Act::kFail, true},     ActName{"hang", Act::kHang, true},
                           ActName{"babble", Act::kBabble, true}, ActName{"say", Act::kSay, false},
                           ActName{"null", Act::kNull, false},    ActName{"delete", Act::kDelete, false},
                           ActName{"grow", Act::kGrow, true}};

std::string_view Trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string_view TakeWord(std::string_view& rest) {
    const auto end = std::min(rest.find_first_of(" \t"), rest.size());
    const std::string_view word = rest.substr(0, end);
    rest = Trim(rest.substr(end));
    return word;
}

bool ParseNumber(std::string_view text, std::uint64_t& number) {
    const bool hex = text.starts_with("0x");
    if (hex) text.remove_prefix(2);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
    return error == std::errc{} && end == text.data() + text.size();
}

// "\n", "\t", "\\" and "\xNN"; any other character after a backslash stands for itself.
std::string Unescape(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char kind = text[++i];
        unsigned value = 0;
        if (kind == 'x' && i + 2 < text.size() &&
            std::from_chars(text.data() + i + 1, text.data() + i + 3, value, 16).ptr == text.data() + i + 3) {
            out += static_cast<char>(value);
            i += 2;
        } else {
            out += kind == 'n' ? '\n' : kind == 't' ? '\t' : kind;
        }
    }
    return out;
}

bool ParseLine(std::string_view rest, ScriptLine& line) {
    line.step = TakeWord(rest);
    const std::string_view act = TakeWord(rest);
    const auto found = std::find_if(kActs.begin(), kActs.end(), [&](const ActName& a) { return a.name == act; });
    if (found == kActs.end() || std::find(kSteps.begin(), kSteps.end(), line.step) == kSteps.end()) return false;
    line.act = found->act;
    if (found->takesNumber) return ParseNumber(rest, line.number);
    if (line.act == Act::kSay) line.text = Unescape(rest);
    return line.act == Act::kSay || rest.empty();
}

}  // namespace

bool ParseScript(std::string_view text, std::vector<ScriptLine>& lines, std::string& error) {
    std::string dump;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const std::string_view row = Trim(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (row.empty() || row.front() == '#') continue;
        if (row.front() == '[' && row.back() == ']') {
            dump = row.substr(1, row.size() - 2);
            if (dump == "*") dump.clear();
            continue;
        }
        ScriptLine line;
        line.dump = dump;
        if (!ParseLine(row, line)) {
            error = row;
            return false;
        }
        lines.push_back(std::move(line));
    }
    return true;
}

std::vector<ScriptLine> LinesFor(const std::vector<ScriptLine>& lines, std::string_view step,
                                 std::string_view dumpName) {
    std::vector<ScriptLine> found;
    for (const ScriptLine& line : lines)
        if (line.step == step && (line.dump.empty() || line.dump == dumpName)) found.push_back(line);
    return found;
}

std::string Babble(std::uint64_t length) {
    std::string noise(static_cast<std::size_t>(length), ' ');
    std::uint32_t state = 0x2545F491u;
    for (char& c : noise) {
        state = state * 1664525u + 1013904223u;
        const std::uint32_t value = state >> 24;
        c = value < 8 ? '\n' : static_cast<char>(value);
    }
    return noise;
}

}  // namespace zoengine
