# GCC of mingw-w64 (POSIX threads) for 64-bit Windows; what is built runs under Wine through scripts/wine-run.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
include("${CMAKE_CURRENT_LIST_DIR}/windows_cross.cmake")
