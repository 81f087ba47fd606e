#pragma once

// The system's text for a Win32 error, for messages. One routine, so that the same error reads the same everywhere.

#include <cstdint>
#include <string>

namespace zo {

// UTF-8, one line, no line end; "error N" for a number that the system has no text for.
[[nodiscard]] std::string ErrorText(std::uint32_t error);

}  // namespace zo
