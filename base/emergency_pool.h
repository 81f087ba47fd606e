#pragma once

// The GNU C++ runtime sets 73 KB aside for exceptions when memory has run out, once in every module that contains it, and
// frees them nowhere: each time that such a DLL is loaded and unloaded, they would be lost.

#include <cstddef>

#ifdef __GLIBCXX__
namespace __gnu_cxx {       // NOLINT(bugprone-reserved-identifier): the runtime's own, which no header declares
void __freeres() noexcept;  // NOLINT(bugprone-reserved-identifier)
}
#endif

namespace zo {

// For DllMain when the DLL is unloaded, as its last deed. Not when the process ends: another thread may have been
// stopped while it held the heap's lock.
inline void FreeEmergencyPool() noexcept {
#ifdef __GLIBCXX__
    __gnu_cxx::__freeres();
#endif
}

}  // namespace zo
