#pragma once

// The open channel to the driver, for the commands that need it.

#include <functional>

#include "output.h"

namespace zoctl {

// Opens the channel, does the work and closes the channel again. When it cannot be opened, reports that and does
// nothing.
int WithDriver(Output& out, const std::function<int()>& work);

}  // namespace zoctl
