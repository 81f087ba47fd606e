#pragma once

// What the library sends to the debugger while an object of this type lives, one string for each call. One at a time;
// with a library that is loaded by hand it must go before the library does.

#include <string>
#include <vector>

#include "import_hook.h"

namespace zotest {

class DebugOutput {
  public:
    [[nodiscard]] const std::vector<std::string>& Strings() const noexcept { return strings_; }

  private:
    std::vector<std::string> strings_;
    // Passed on: a handler of the platform's own exception learns from it when a message came.
    ImportHook hook_{"OutputDebugStringA", OutputDebugStringA, [this](const char* text) {
                         strings_.emplace_back(text);
                         OutputDebugStringA(text);
                     }};
};

}  // namespace zotest
