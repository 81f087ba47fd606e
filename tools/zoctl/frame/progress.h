#pragma once

// A line of progress for work that the library does in one call and reports little of: elapsed time, the bytes that
// this process has read where the platform counts them, and the counts that the command can give. Shown on a terminal
// only.

#include <string>
#include <thread>

#include "output.h"
#include "owned_handles.h"
#include "progress_text.h"

namespace zoctl {

class Progress {
  public:
    Progress(const Output& out, std::string what, ProgressFacts facts);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

  private:
    void Run();
    [[nodiscard]] bool Ended(unsigned milliseconds) const;

    ProgressText text_;  // of the thread alone, once that runs
    zo::OwnedKernelObject end_;
    std::thread thread_;
};

}  // namespace zoctl
