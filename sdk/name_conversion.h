#pragma once

// Callers use Win32 names for files and registry keys, the driver uses kernel names. These two routines convert them,
// into buffers of the records' field lengths; a name that does not fit is refused, never cut. On failure the output is
// partly written and must not be sent.

#include <cstdint>
#include <string_view>

#include "driver_records.h"

namespace zop {

using ZopNtPath = wchar_t[ZOP_PATH_UNITS];
using ZopNtKeyName = wchar_t[ZOP_KEY_UNITS];

// "C:\Suite\a.exe" becomes "\Device\HarddiskVolume3\Suite\a.exe". Relative paths are made absolute; other full paths
// (UNC, "\\?\", "\\.\") are passed on unchanged. path must end at a terminating zero.
//   ZOP_E_INVALID_ARG  empty, more than 259 characters in full form, or too long as an NT path
//   ZOP_E_FAILED       the drive has no target; that is logged
[[nodiscard]] std::int32_t ZopConvertWin32PathToNtPath(std::wstring_view path, ZopNtPath& out);

// "HKLM\Software\x" becomes "\REGISTRY\MACHINE\Software\x". The current user's root becomes the key of the process's
// user, even when the thread impersonates another; the classes root is always the machine's.
//   ZOP_E_INVALID_ARG  empty, no known root followed by a backslash, or too long
//   ZOP_E_FAILED       the user's SID cannot be read
[[nodiscard]] std::int32_t ZopRegistryKeyToNtName(std::wstring_view name, ZopNtKeyName& out);

}  // namespace zop
