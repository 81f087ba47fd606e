#pragma once

// Patterns with * for any text and ? for one character. Pure.

#include <string_view>

namespace zoctl {

// Compares exactly: fold both to ignore case. Of UTF-8, "?" takes one byte.
[[nodiscard]] bool FitsPattern(std::string_view pattern, std::string_view text);

}  // namespace zoctl
