#pragma once

// Callers name files and registry keys as Win32 does, the driver matches the kernel's names. These two routines turn
// the one into the other, into buffers of the records' field lengths; a name that does not fit is refused, never cut.
// On failure the output is left partly written and must not be sent.

#include <cstdint>
#include <string_view>

#include "driver_records.h"

namespace zop {

using NtPath = wchar_t[ZOP_PATH_UNITS];
using NtKeyName = wchar_t[ZOP_KEY_UNITS];

// "C:\Suite\a.exe" becomes "\Device\HarddiskVolume3\Suite\a.exe". Relative paths are made absolute; what has no drive
// letter then (UNC, "\\?\", "\\.\") is passed on as it is. path must end at a terminating zero.
//   ZOP_E_INVALID_ARG  empty, more than 259 characters in full form, or too long as an NT path
//   ZOP_E_FAILED       the drive has no target; that is logged
[[nodiscard]] std::int32_t ZopConvertWin32PathToNtPath(std::wstring_view path, NtPath& out);

// "HKLM\Software\x" becomes "\REGISTRY\MACHINE\Software\x". The current user's root becomes the key of the process's
// user, whomever the thread impersonates; the classes root is always the machine's.
//   ZOP_E_INVALID_ARG  empty, no known root followed by a backslash, or too long
//   ZOP_E_FAILED       the user's SID cannot be read
[[nodiscard]] std::int32_t ZopRegistryKeyToNtName(std::wstring_view name, NtKeyName& out);

}  // namespace zop
