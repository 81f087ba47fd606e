#pragma once

// The exit codes of zoctl: one table for the whole tool, which the manual page repeats and a test compares. Scripts
// rely on the numbers, so they never change their meaning.

#include <span>

namespace zoctl {

enum ExitCode : int {
    kExitDone = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitNoDriver = 3,
    kExitVersion = 4,
    kExitAccess = 5,
    kExitExists = 6,
    kExitNotFound = 7,
    kExitFull = 8,
    kExitNoChannel = 9,
    kExitVerify = 16,  // plus the bits below
    kExitTampered = 32,
    kExitKey = 33,
    kExitUnreadable = 34,
    kExitDoctor = 40,
    kExitLint = 41,
    kExitNotInForce = 50,
    kExitEventsLost = 60,
    kExitCancelled = 130,
};

// Added to kExitVerify: what a verified tree has.
inline constexpr int kVerifyExtra = 1;
inline constexpr int kVerifyMissing = 2;
inline constexpr int kVerifyBad = 4;

struct ExitCodeRow {
    const char* code;  // "16 + bits" is more than one number
    const char* meaning;
};

[[nodiscard]] std::span<const ExitCodeRow> ExitCodeTable();

}  // namespace zoctl
