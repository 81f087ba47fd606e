#include "exit_codes.h"

namespace zoctl {

std::span<const ExitCodeRow> ExitCodeTable() {
    static constexpr ExitCodeRow kRows[] = {
        {"0", "done"},
        {"1", "failed"},
        {"2", "usage: the command line or an input file is wrong"},
        {"3", "driver, service or file not found"},
        {"4", "version mismatch"},
        {"5", "access denied"},
        {"6", "already exists"},
        {"7", "not found"},
        {"8", "the driver's table is full"},
        {"9", "not initialised, or no channel to the driver"},
        {"16 + bits", "verify found: 1 extra, 2 missing, 4 bad (added up)"},
        {"32", "the manifest is tampered with or malformed"},
        {"33", "no key, or the wrong key"},
        {"34", "not everything could be read, or sealed (sign --strict)"},
        {"40", "doctor found a problem"},
        {"41", "rules check --lint found something"},
        {"50", "rules not all in force"},
        {"60", "events --fail-on-loss: events were lost"},
        {"130", "cancelled"},
    };
    return kRows;
}

}  // namespace zoctl
