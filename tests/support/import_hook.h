#pragma once

// Puts a function of the test in the place of one that the library imports from the platform, to script failures that
// no real file, service or key can be made to give, and to see what the library asks for.

#include <windows.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace zotest {

class ImportHook {
  public:
    template <typename Function>
    ImportHook(const char* name, Function* replacement) : slot_(FindSlot(name)), original_(*slot_) {
        Set(reinterpret_cast<ULONG_PTR>(replacement));
    }
    ~ImportHook() { Set(original_); }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

  private:
    static ULONG_PTR* FindSlot(const char* name) {
        auto* base = reinterpret_cast<BYTE*>(GetModuleHandleW(L"ZoProtectorLib.dll"));
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
        const DWORD offset = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        for (auto* dll = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + offset); dll->Name != 0; ++dll) {
            const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + dll->OriginalFirstThunk);
            auto* slots = reinterpret_cast<ULONG_PTR*>(base + dll->FirstThunk);
            for (; names->u1.AddressOfData != 0; ++names, ++slots) {
                if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
                const auto* import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) == 0) return slots;
            }
        }
        throw std::runtime_error(std::string("the library does not import ") + name);
    }

    void Set(ULONG_PTR function) {
        DWORD old = 0;
        VirtualProtect(slot_, sizeof(*slot_), PAGE_READWRITE, &old);
        *slot_ = function;
        VirtualProtect(slot_, sizeof(*slot_), old, &old);
    }

    ULONG_PTR* slot_;
    ULONG_PTR original_;
};

}  // namespace zotest
