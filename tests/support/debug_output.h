#pragma once

// What the library sends to the debugger while an object of this type lives, one string for each call. One at a time;
// with a library that is loaded by hand it must go before the library does.

#include <string>
#include <vector>

#include "import_hook.h"

namespace zotest {

class DebugOutput {
  public:
    DebugOutput() { heard.clear(); }

    [[nodiscard]] const std::vector<std::string>& Strings() const noexcept { return heard; }

  private:
    // Passed on: a handler of the platform's own exception learns from it when a message came.
    static void WINAPI Hear(const char* text) {
        heard.emplace_back(text);
        OutputDebugStringA(text);
    }

    static inline std::vector<std::string> heard;
    ImportHook hook_{"OutputDebugStringA", &Hear};
};

}  // namespace zotest
