#pragma once

// The copy of a driver file to the place where it is loaded from, as installation and upgrade make it.

#include <windows.h>

namespace zop {

// Overwrites the target. The copy is never read-only, whatever the source is (on an installation disc every file is):
// such a copy could be neither replaced nor deleted later. Gives the Win32 error, ERROR_SUCCESS when done.
[[nodiscard]] DWORD ZopCopyDriverFile(const wchar_t* source, const wchar_t* target);

}  // namespace zop
