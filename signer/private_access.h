#pragma once

// The access list of a file that holds a private key.

#include <windows.h>

namespace zosigner {

// Leaves the file, which must be open with WRITE_DAC, to the calling user, the local system and the administrators, and
// lets nothing be inherited. File systems without access lists stay as they are: no failure is reported.
void RestrictAccess(HANDLE file);

}  // namespace zosigner
