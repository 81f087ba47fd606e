#include "event_text.h"

#include "utf16_text.h"

namespace zoctl {

namespace {

constexpr std::size_t kShortest = 4;

struct Run {
    std::size_t units = 0;
    std::size_t latin = 0;    // units below U+0100
    bool oneAlphabet = true;  // all units have the same high byte

    // Numbers that happen to be printable are of no one alphabet and hold hardly a Latin letter; names hold many, for
    // they begin with a device or a root.
    [[nodiscard]] bool IsText() const { return units >= kShortest && (oneAlphabet || 2 * latin >= units); }
};

std::uint16_t UnitAt(std::span<const std::uint8_t> record, std::size_t at) {
    return static_cast<std::uint16_t>(record[at] | (record[at + 1] << 8));
}

bool Printable(std::uint16_t unit) {
    return unit >= 0x20 && unit != 0x7F && !(unit >= 0x80 && unit < 0xA0) && unit < 0xFFFE;
}

// The run that begins at this byte; empty when something else than a zero unit or the record's end stops it.
Run RunAt(std::span<const std::uint8_t> record, std::size_t at) {
    Run run;
    const std::size_t start = at;
    for (; at + 1 < record.size(); at += 2) {
        const std::uint16_t unit = UnitAt(record, at);
        if (unit == 0) return run;
        if (!Printable(unit)) return {};
        ++run.units;
        if (unit < 0x100) ++run.latin;
        if (record[at + 1] != record[start + 1]) run.oneAlphabet = false;
    }
    return run;
}

}  // namespace

std::vector<std::string> FindStrings(std::span<const std::uint8_t> record) {
    std::vector<std::string> strings;
    for (std::size_t at = 0; at + 1 < record.size();) {
        const Run run = RunAt(record, at);
        // Plain text read one byte off still looks like rare letters: the reading with more Latin letters is the right
        // one.
        if (!run.IsText() || RunAt(record, at + 1).latin > run.latin) {
            ++at;
            continue;
        }
        std::vector<std::uint16_t> units;
        for (std::size_t i = 0; i < run.units; ++i)
            units.push_back(UnitAt(record, at + 2 * i));
        strings.push_back(Utf8FromUnits(units));
        at += 2 * run.units + 2;
    }
    return strings;
}

}  // namespace zoctl
