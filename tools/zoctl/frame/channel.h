#pragma once

// The open channel to the driver, for the commands that need it.

#include "output.h"
#include "zoprotector.hpp"

namespace zoctl {

// Open for as long as this lives, if it can be opened at all.
class Channel {
  public:
    // Reports that it could not be opened.
    [[nodiscard]] Ended Check(Output& out) const;

  private:
    std::error_code error_;
    zoprotector::Session session_{error_};
};

// The action with the channel open; without a channel it only reports that.
[[nodiscard]] Action WithDriver(Action action);

}  // namespace zoctl
