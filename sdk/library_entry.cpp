// What happens when the library is loaded and unloaded.

#include <windows.h>

#include "channel.h"
#include "emergency_pool.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID processEnds);

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID processEnds) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    if (reason == DLL_PROCESS_DETACH) {
        zop::ZopCloseAtDetach();
        if (processEnds == nullptr) zo::FreeEmergencyPool();
    }
    return TRUE;
}
