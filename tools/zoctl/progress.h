#pragma once

// A line of progress for work that the library does in one call and reports nothing of: elapsed time, the bytes that
// this process has read where the platform counts them, and what the command adds. Shown on a terminal only.

#include <cstdint>
#include <string>
#include <thread>

#include "output.h"
#include "owned_handles.h"

namespace zoctl {

class Progress {
  public:
    // expectedBytes: all that will be read, or 0 when that is not known.
    Progress(const Output& out, std::string what, std::uint64_t expectedBytes = 0);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

  private:
    void Run() const;

    std::string what_;
    std::uint64_t expectedBytes_;
    zo::OwnedKernelObject end_;
    std::thread thread_;
};

}  // namespace zoctl
