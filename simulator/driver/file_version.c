#include "simulator_state.h"

/* Compiled once for each driver file; the build gives the numbers, which its version resource bears too. */
const uint32_t kSimFileVersion[3] = {SIM_VERSION_MAJOR, SIM_VERSION_MINOR, SIM_VERSION_PATCH};
