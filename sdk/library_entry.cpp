// What happens when the library is loaded and unloaded.

#include <windows.h>

#include "channel.h"
#include "diagnostic_log.h"
#include "zoprotector.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    } else if (reason == DLL_PROCESS_DETACH) {
        // At the end of the process the other threads are gone already, wherever they stood, and the SDK lock and the
        // log lock may be theirs for ever. The last thread must not wait for them: as critical sections they let it
        // through (Wine) or end the process at once (Windows, which does so while a process shuts down).
        if (zop::ZopIsInitialized()) ZoProtector_Uninitialize();
        // A failed initialisation, or a line written since, may have left the file open.
        zop::ZopLogClose();
    }
    return TRUE;
}
