#pragma once

// Which known name a mistyped one most likely means. Pure.

#include <span>
#include <string>
#include <string_view>

namespace zoctl {

// The name that takes the fewest typing mistakes (a letter too many, missing, wrong, or two swapped) to become the
// word, regardless of letter case; "" when even that one takes more than a third of the word's letters. On a tie, the
// first.
[[nodiscard]] std::string ClosestName(std::string_view word, std::span<const std::string> names);

}  // namespace zoctl
