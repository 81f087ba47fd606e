#pragma once

// A line of progress for work that the library does in one call and reports little of: elapsed time, the bytes that
// this process has read where the platform counts them, and the counts that the command can give. Shown on a terminal
// only.

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "output.h"
#include "owned_handles.h"

namespace zoctl {

// Both are called on a thread of the line's own, and only when the line is shown.
struct ProgressFacts {
    // As in "120 files, 2 findings"; empty when there is nothing to show.
    std::function<std::string()> counts;
    // All that will be read, where that is known beforehand; called once, and only if the platform counts what is read.
    std::function<std::uint64_t()> expectedBytes = {};
};

class Progress {
  public:
    Progress(const Output& out, std::string what, ProgressFacts facts);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

  private:
    void Run() const;
    [[nodiscard]] bool Ended(unsigned milliseconds) const;

    std::string what_;
    ProgressFacts facts_;
    zo::OwnedKernelObject end_;
    std::thread thread_;
};

}  // namespace zoctl
