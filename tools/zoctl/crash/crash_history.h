#pragma once

// "zoctl crash history".

#include <cstdint>
#include <string>

#include "output.h"

namespace zoctl {

struct HistoryOptions {
    std::string record;
    std::string journal;
    std::string dump;
    std::uint32_t last = 0;  // 0: all
};

[[nodiscard]] int ShowCrashHistory(Output& out, const HistoryOptions& options);

}  // namespace zoctl
