// A Win32 service program that is registered under the driver's name, to reach states that a driver passes through too
// quickly to be seen. Its first argument says how it behaves; the event named below ends it, whatever it is doing.
//
//   starting  stays in START_PENDING
//   running   RUNNING; a stop is accepted and done at once
//   slow      RUNNING; a stop takes 1.2 seconds
//   stubborn  RUNNING; a stop is accepted and never done (STOP_PENDING)
//   deaf      RUNNING; a stop is not accepted
//   paused    PAUSED, soon after RUNNING

#include "pending_service.h"

#include <windows.h>

#include <string>

#include "owned_handles.h"

namespace {

std::string behaviour;
SERVICE_STATUS_HANDLE reporter;
HANDLE stopRequested;

void Report(DWORD state) {
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = behaviour == "deaf" ? 0 : SERVICE_ACCEPT_STOP;
    status.dwWaitHint = 60000;
    SetServiceStatus(reporter, &status);
}

DWORD WINAPI Control(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(stopRequested);
    }
    return NO_ERROR;
}

void WINAPI Run(DWORD, wchar_t**) {
    const zo::OwnedKernelObject end(CreateEventW(nullptr, TRUE, FALSE, zotest::kEndPendingService));
    const zo::OwnedKernelObject stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    stopRequested = stop.Get();
    reporter = RegisterServiceCtrlHandlerExW(L"ZoProtector", Control, nullptr);
    Report(behaviour == "starting" ? SERVICE_START_PENDING : SERVICE_RUNNING);
    if (behaviour == "paused") {
        Sleep(300);  // the start fails when the service manager sees anything but these two
        Report(SERVICE_PAUSED);
    }

    const HANDLE events[] = {end.Get(), stop.Get()};
    constexpr DWORD kLongest = 60000;  // so that nothing stays behind a test program that died
    if (WaitForMultipleObjects(2, events, FALSE, kLongest) == WAIT_OBJECT_0 + 1) {
        if (behaviour == "slow") Sleep(1200);
        if (behaviour == "stubborn") WaitForSingleObject(end.Get(), kLongest);
    }
    Report(SERVICE_STOPPED);
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1) behaviour = arguments[1];
    wchar_t name[] = L"ZoProtector";
    const SERVICE_TABLE_ENTRYW table[] = {{name, Run}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
