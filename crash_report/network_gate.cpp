#include "network_gate.h"

#include <algorithm>
#include <chrono>
#include <mutex>

namespace zocrash {

namespace {

using Microseconds = std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

// Counted from the clock's own start in 64-bit microseconds, where the longest wait (136 years) fits.
Microseconds Now() {
    return std::chrono::duration_cast<Microseconds>(Clock::now().time_since_epoch());
}

constexpr std::chrono::milliseconds kLongestSleep = std::chrono::hours(24);

}  // namespace

void NetworkGate::Open() noexcept {
    {
        const std::lock_guard guard(lock_);
        open_ = true;
    }
    changed_.NotifyAll();
}

void NetworkGate::Wake() noexcept {
    // A waiter that read the flag just before it was set is asleep once the lock is free, and is not missed.
    {
        const std::lock_guard guard(lock_);
    }
    changed_.NotifyAll();
}

bool NetworkGate::Wait(std::uint32_t seconds, const std::atomic<bool>& cancel) {
    const std::lock_guard guard(lock_);
    const Microseconds deadline = Now() + std::chrono::seconds(seconds);
    while (!open_ && !cancel.load()) {
        const Microseconds now = Now();
        if (now >= deadline) break;
        const auto sleep = std::min(std::chrono::ceil<std::chrono::milliseconds>(deadline - now), kLongestSleep);
        changed_.WaitFor(lock_, static_cast<DWORD>(sleep.count()));
    }
    return open_;
}

}  // namespace zocrash
