#pragma once

// The Win32 form of the image path that the service manager stores for a driver. Installers and the system itself store
// it in several forms; everything that opens the driver's file resolves it here.

#include <string>
#include <string_view>

namespace zop {

//   "\??\C:\x.sys", "\\?\C:\x.sys"  the path without its prefix
//   "\SystemRoot\rest"              in the Windows folder, in any letter case
//   "System32\drivers\x.sys"        without a drive or a leading separator: in the Windows folder as well, which is
//                                   where the kernel looks for it
// Any other text is returned as it is.
[[nodiscard]] std::wstring ZopResolveImagePath(std::wstring_view stored);

}  // namespace zop
