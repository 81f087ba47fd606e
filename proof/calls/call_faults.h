#pragma once

// Makes one call that the library makes of the platform fail, the n-th that the calling thread makes, so that a test
// can walk through all of them. Each import of the DLL is led through a few bytes of code that ask here first; a
// failing call does nothing, sets a Win32 error where its kind has one, and answers what that function answers when it
// fails.
//
// Closing, freeing, locking and reading the clock cannot fail and are only passed on. Every import is on one of the two
// lists: a new one that is on neither is reported when the hooks are set.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zotest {

class CallFaults {
  public:
    enum class Kind { kPlatform, kAllocation };

    // Raises std::runtime_error when an import is on neither list.
    CallFaults();
    ~CallFaults();
    CallFaults(const CallFaults&) = delete;
    CallFaults& operator=(const CallFaults&) = delete;

    // From now on the calls of this kind by this thread are counted, and the n-th fails; 0 fails none.
    void Arm(Kind kind, std::size_t n);
    void Disarm();

    [[nodiscard]] std::size_t Calls() const;       // counted since Arm
    [[nodiscard]] const char* FailedCall() const;  // the function's name; null when none failed
};

}  // namespace zotest
