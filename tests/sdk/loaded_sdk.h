#pragma once

// The library loaded and unloaded by hand, for tests of what that does. Each load begins with a state of its own.

#include <windows.h>

#include <cstring>
#include <stdexcept>
#include <string>

#define ZO_NO_IMPORT
#include "loaded_library.h"
#include "zoprotector.h"

namespace sdktest {

struct LoadedSdk {
    zotest::LoadedLibrary library;
    decltype(&ZoProtector_Initialize) Initialize = ZOTEST_FUNCTION(library, ZoProtector_Initialize);
    decltype(&ZoProtector_Uninitialize) Uninitialize = ZOTEST_FUNCTION(library, ZoProtector_Uninitialize);
    decltype(&ZoProtector_GetVersion) GetVersion = ZOTEST_FUNCTION(library, ZoProtector_GetVersion);
    decltype(&ZoProtector_SetMasterEnabled) SetMasterEnabled = ZOTEST_FUNCTION(library, ZoProtector_SetMasterEnabled);
    decltype(&ZoProtector_GetHardwareId) GetHardwareId = ZOTEST_FUNCTION(library, ZoProtector_GetHardwareId);

    // Writes two lines without needing a channel.
    void WriteLines() const {
        wchar_t text[65];
        GetHardwareId(text, 65);
    }

    // Puts a function in the place of one that the library imports.
    void Replace(const char* name, void* function) const {
        auto* const base = reinterpret_cast<std::uint8_t*>(library.Get());
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
        for (; import->Name != 0; ++import) {
            const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + import->OriginalFirstThunk);
            auto* addresses = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->FirstThunk);
            for (; names->u1.AddressOfData != 0; ++names, ++addresses) {
                if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
                const auto* entry = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(entry->Name), name) != 0) continue;
                DWORD old = 0;
                VirtualProtect(addresses, sizeof *addresses, PAGE_READWRITE, &old);
                addresses->u1.Function = reinterpret_cast<ULONGLONG>(function);
                VirtualProtect(addresses, sizeof *addresses, old, &old);
                return;
            }
        }
        throw std::runtime_error(std::string("not imported: ") + name);
    }
};

}  // namespace sdktest
