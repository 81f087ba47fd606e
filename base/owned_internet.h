#pragma once

// The owner of a WinINet handle.

// clang-format off
#include <windows.h>
#include <wininet.h>
// clang-format on

#include "owned_handles.h"

namespace zo {

// Sessions, connections and requests: failure is null.
struct InternetKind {
    using Handle = HINTERNET;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { InternetCloseHandle(handle); }
};
using OwnedInternet = Owned<InternetKind>;

}  // namespace zo
