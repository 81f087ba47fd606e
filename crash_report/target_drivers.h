#pragma once

// The driver names that decide whether a crash concerns the suite.

#include <cstdint>
#include <string>
#include <vector>

#include "locks.h"

namespace zocrash {

class TargetDrivers {
  public:
    // Takes every name that is neither null nor empty, in order; none at all brings the built-in names back.
    void Replace(const char* const* names, std::uint32_t count);

    // The names found in the text regardless of case, in list order with "|" between them.
    [[nodiscard]] std::string Match(const std::string& text);

  private:
    [[nodiscard]] std::vector<std::string> Copy();

    zo::CriticalSection lock_;
    std::vector<std::string> names_;
};

}  // namespace zocrash
