#pragma once

// The gate that holds a run back until the caller says that the network is up. Once open it stays open for the life of
// the library.

#include <atomic>
#include <cstdint>

#include "locks.h"

namespace zocrash {

class NetworkGate {
  public:
    void Open() noexcept;

    // Lets a waiting run look at its cancel flag again. Set the flag first.
    void Wake() noexcept;

    // Waits until the gate is open, the time is over or cancel is set; returns whether it is open.
    [[nodiscard]] bool Wait(std::uint32_t seconds, const std::atomic<bool>& cancel);

  private:
    zo::CriticalSection lock_;
    zo::ConditionVariable changed_;
    bool open_ = false;
};

}  // namespace zocrash
