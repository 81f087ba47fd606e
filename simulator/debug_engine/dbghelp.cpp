// The engine's companion library. Callers load it before the engine; the engine here needs nothing of it, so it only
// tells its version and that it cannot write dumps. dbghelp.def exports both functions under the platform's names,
// which its header declares as imported.

// clang-format off
#include <windows.h>
#include <dbghelp.h>
// clang-format on

extern "C" LPAPI_VERSION WINAPI TellApiVersion() {
    static API_VERSION version{4, 0, API_VERSION_NUMBER, 0};
    return &version;
}

extern "C" BOOL WINAPI RefuseToWriteDump(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                                         PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION) {
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}
