#pragma once

// Replacing a file that is locked or protected, by the driver.

#include <cstdint>

namespace zop {

// The driver moves the target aside and puts the source in its place; what was moved aside is deleted at the next
// restart. Win32 paths. Initialises the library when it is not.
[[nodiscard]] std::int32_t ZopReplaceFileByDriver(const wchar_t* targetPath, const wchar_t* sourcePath);

}  // namespace zop
