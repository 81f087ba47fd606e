#pragma once

// Puts a function of the test in the place of one that the library (or another module) imports, to script failures that
// no real file, service or key can be made to give, and to see what the library asks for.

#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "import_table.h"

namespace zotest {

class ImportHook {
  public:
    template <typename Function>
    ImportHook(HMODULE importer, const char* name, Function* replacement)
        : slot_(FindSlot(importer, name)), original_(*slot_) {
        SetImport(slot_, reinterpret_cast<ULONG_PTR>(replacement));
    }
    template <typename Function>
    ImportHook(const char* name, Function* replacement) : ImportHook(TheLibrary(), name, replacement) {}
    // A replacement with a state: a lambda that takes the parameters of `function`, and may call it. A lambda of the
    // source stands in for one function at a time.
    template <typename Result, typename... Parameters, typename Replacement>
    ImportHook(const char* name, Result(WINAPI* /*function*/)(Parameters...), Replacement replacement)
        : slot_(FindSlot(TheLibrary(), name)), original_(*slot_) {
        held<Replacement>.emplace(std::move(replacement));
        SetImport(slot_, reinterpret_cast<ULONG_PTR>(&CallHeld<Replacement, Result, Parameters...>));
    }
    ~ImportHook() { SetImport(slot_, original_); }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

  private:
    template <typename Replacement>
    static inline std::optional<Replacement> held;

    template <typename Replacement, typename Result, typename... Parameters>
    static Result WINAPI CallHeld(Parameters... parameters) {
        return (*held<Replacement>)(parameters...);
    }

    static ULONG_PTR* FindSlot(HMODULE importer, const char* name) {
        ULONG_PTR* found = nullptr;
        ForEachImport(importer, [&](const char* /*dll*/, const char* import, ULONG_PTR* slot) {
            if (found == nullptr && std::strcmp(import, name) == 0) found = slot;
        });
        if (found == nullptr) throw std::runtime_error(std::string("nothing imports ") + name);
        return found;
    }

    ULONG_PTR* slot_;
    ULONG_PTR original_;
};

// Stands in for a function that fails by answering 0 (FALSE, null, no characters) with this error, whatever its
// parameters are: on x64 the caller keeps them.
template <DWORD Error>
ULONG_PTR WINAPI FailWith() {
    SetLastError(Error);
    return 0;
}

}  // namespace zotest
