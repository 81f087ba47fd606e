#pragma once

// What the library sends to the debugger while an object of this type lives. One at a time; with a library that is
// loaded by hand it must go before the library does.

#include <string>
#include <vector>

#include "import_hook.h"

namespace zotest {

class DebugOutput {
  public:
    DebugOutput() { strings_.clear(); }

    // The strings so far, one for each call.
    [[nodiscard]] const std::vector<std::string>& Strings() const noexcept { return strings_; }

  private:
    static void WINAPI Hear(const char* text) {
        strings_.emplace_back(text);
        OutputDebugStringA(text);
    }

    static inline std::vector<std::string> strings_;
    ImportHook hook_{"OutputDebugStringA", &Hear};
};

}  // namespace zotest
