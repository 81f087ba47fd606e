#pragma once

// What ends a command early.

#include <string>

namespace simctl {

enum Exit : int { kDone = 0, kRefused = 1, kUsage = 2, kNoSimulator = 3 };

struct Failure {
    int exitCode;
    std::string message;
};

}  // namespace simctl
