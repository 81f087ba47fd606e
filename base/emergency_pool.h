#pragma once

// The GNU C++ runtime reserves 73 KB for exceptions that are thrown when memory has run out, once in each module that
// contains it, and never frees them. A DLL would lose them each time that it is unloaded.

#include <cstddef>

#ifdef __GLIBCXX__
namespace __gnu_cxx {       // NOLINT(bugprone-reserved-identifier): no header declares it
void __freeres() noexcept;  // NOLINT(bugprone-reserved-identifier,readability-identifier-naming)
}
#endif

namespace zo {

// Call it last in DllMain when the DLL is unloaded. Destructors of static objects run after it and must not throw.
// Do not call it when the process ends: another thread may have been stopped while it held the heap's lock.
inline void FreeEmergencyPool() noexcept {
#ifdef __GLIBCXX__
    __gnu_cxx::__freeres();
#endif
}

}  // namespace zo
