#pragma once

// The DLL loaded by path, for tests that load and unload it or count what that leaves behind. Include the public
// headers with ZO_NO_IMPORT defined, so that the program does not link the DLL.

#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "owned_handles.h"

namespace zotest {

// The folder of the running program, where the build puts the DLL, the drivers and zoctl next to the tests.
[[nodiscard]] inline std::filesystem::path ProgramFolder() {
    wchar_t path[1024];
    const DWORD units = GetModuleFileNameW(nullptr, path, 1024);
    return std::filesystem::path(std::wstring(path, units)).parent_path();
}

class LoadedLibrary {
  public:
    // Raises std::runtime_error when it cannot be loaded.
    explicit LoadedLibrary(const std::filesystem::path& path = ProgramFolder() / "ZoProtectorLib.dll")
        : module_(LoadLibraryW(path.c_str())) {
        if (!module_) {
            throw std::runtime_error("cannot load " + path.string() + ", error " + std::to_string(GetLastError()));
        }
    }

    template <typename Function>
    [[nodiscard]] Function* Find(const char* name) const {
        const FARPROC address = GetProcAddress(module_.Get(), name);
        if (address == nullptr) throw std::runtime_error(std::string("no export ") + name);
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
    }

  private:
    zo::OwnedModule module_;
};

}  // namespace zotest

// The export with the type of its declaration.
#define ZOTEST_FUNCTION(library, name) ((library).Find<decltype(name)>(#name))
