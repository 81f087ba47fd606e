#pragma once

// The open channel to the driver, for the commands that need it.

#include "output.h"

namespace zoctl {

// Open for as long as this lives, if it can be opened at all.
class Channel {
  public:
    Channel();
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Reports that it could not be opened.
    [[nodiscard]] Ended Check(Output& out) const;

  private:
    std::int32_t status_;
};

// The action with the channel open; without a channel it only reports that.
[[nodiscard]] Action WithDriver(Action action);

}  // namespace zoctl
