#pragma once

// Functions of the system's libraries that no import library or public header offers as they are used here.

#include <windows.h>

namespace zoctl {

// Of a library that the process has loaded; null where it has none of that name.
template <typename Function>
[[nodiscard]] Function SystemCall(const wchar_t* library, const char* name) {
    const HMODULE loaded = GetModuleHandleW(library);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(loaded ? GetProcAddress(loaded, name) : nullptr));
}

}  // namespace zoctl
