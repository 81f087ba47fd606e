#pragma once

// What this process sends to the debugger (OutputDebugStringA and its wide sister), caught while an object of this type
// lives. It reaches a vectored exception handler of the same process, so no debugger is needed. One at a time.

#include <string>
#include <vector>

namespace zotest {

class DebugOutput {
  public:
    DebugOutput();
    ~DebugOutput();
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    // The strings so far, one for each call, as they were given (a wide one narrowed by the platform).
    [[nodiscard]] std::vector<std::string> Strings() const;

  private:
    void* handler_;
};

}  // namespace zotest
