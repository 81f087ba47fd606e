#pragma once

// The open channel to the driver, for the commands that need it.

#include <functional>

#include "output.h"

namespace zoctl {

// Open for as long as this lives, if it can be opened at all.
class Channel {
  public:
    Channel();
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    [[nodiscard]] std::int32_t Status() const { return status_; }

  private:
    std::int32_t status_;
};

// Opens the channel, does the work and closes the channel again. When it cannot be opened, reports that and does
// nothing.
int WithDriver(Output& out, const std::function<int()>& work);

}  // namespace zoctl
