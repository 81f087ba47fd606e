#pragma once

// The platform's locks as Lockable types, for std::lock_guard and std::unique_lock.
//
// The standard library's mutex, condition variable and call_once are not used inside the DLL: with a statically linked
// runtime they leave handles behind at every load and unload, and a thread that is ended at process exit while it holds
// a std::mutex or an SRWLOCK makes process detach hang. A critical section does neither, and entering it cannot fail.

#include <windows.h>

namespace zo {

class CriticalSection {
  public:
    CriticalSection() noexcept { InitializeCriticalSection(&section_); }
    ~CriticalSection() { DeleteCriticalSection(&section_); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void lock() noexcept { EnterCriticalSection(&section_); }
    // Does not wait. At the end of the process the owner may be a thread that was ended: Windows ends a process at once
    // that waits for such a lock, and its exit code is lost.
    [[nodiscard]] bool try_lock() noexcept { return TryEnterCriticalSection(&section_) != FALSE; }
    void unlock() noexcept { LeaveCriticalSection(&section_); }

    [[nodiscard]] CRITICAL_SECTION* Get() noexcept { return &section_; }

  private:
    CRITICAL_SECTION section_;
};

// A condition variable for use with CriticalSection.
class ConditionVariable {
  public:
    // False when the time ran out. Spurious wake-ups happen: test the condition again.
    bool WaitFor(CriticalSection& section, DWORD milliseconds) noexcept {
        return SleepConditionVariableCS(&variable_, section.Get(), milliseconds) != FALSE;
    }
    void NotifyAll() noexcept { WakeAllConditionVariable(&variable_); }

  private:
    CONDITION_VARIABLE variable_ = CONDITION_VARIABLE_INIT;
};

}  // namespace zo
