#pragma once

#include "bare_channel.h"

namespace zobench {

// Every export that adds, removes, clears or switches rules, each beside a bare request after the same name conversion,
// log write and debugger output.
void CompareRuleExports(const BareChannel& bare);

}  // namespace zobench
