#pragma once

// The functions that a loaded program or library imports, and the slots through which it calls them.

#include <windows.h>

namespace zotest {

[[nodiscard]] inline HMODULE TheLibrary() {
    return GetModuleHandleW(L"ZoProtectorLib.dll");
}

// Calls `each` with the DLL, the name and the slot of every function that is imported by name.
template <typename Each>
void ForEachImport(HMODULE module, const Each& each) {
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const DWORD offset = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* dll = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + offset); dll->Name != 0; ++dll) {
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + dll->OriginalFirstThunk);
        auto* slots = reinterpret_cast<ULONG_PTR*>(base + dll->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
            const auto* import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            each(reinterpret_cast<const char*>(base + dll->Name), reinterpret_cast<const char*>(import->Name), slots);
        }
    }
}

// From now on calls through this slot reach `function`.
inline void SetImport(ULONG_PTR* slot, ULONG_PTR function) {
    DWORD old = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &old);
    *slot = function;
    VirtualProtect(slot, sizeof(*slot), old, &old);
}

}  // namespace zotest
