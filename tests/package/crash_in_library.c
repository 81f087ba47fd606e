/* Crashes inside the library and prints where, as an offset into its file. The handler runs on the crash itself. */
#include <stdio.h>
#include <windows.h>

#include "zoprotector.h"

static LONG CALLBACK Report(EXCEPTION_POINTERS* crash) {
    const HMODULE library = GetModuleHandleW(L"ZoProtectorLib.dll");
    printf("%llx\n", (unsigned long long)crash->ContextRecord->Rip - (unsigned long long)(ULONG_PTR)library);
    fflush(stdout);
    ExitProcess(3);
}

int main(void) {
    AddVectoredExceptionHandler(1, Report);
    return ZoProtector_QueryDriverStatus((ZoProtectorDriverStatus*)8); /* no address that can be written */
}
