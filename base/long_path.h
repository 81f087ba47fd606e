#pragma once

// The platform's long form of a path ("\\?\C:\..."), by which everything can be opened: no length limit holds, and
// trailing dots and blanks stay part of a name.

#include <cstdint>
#include <string>
#include <string_view>

namespace zo {

// Absolute, in the ordinary form. Gives the Win32 error, 0 when done.
[[nodiscard]] std::uint32_t FullPath(const wchar_t* path, std::wstring& full);

// Puts the prefix before a full path; one that has it already stays as it is.
[[nodiscard]] std::wstring WithLongPrefix(std::wstring_view full);

// Both. A path that the platform cannot resolve comes back as it is, so that opening it gives the error.
[[nodiscard]] std::wstring LongForm(const wchar_t* path);

}  // namespace zo
