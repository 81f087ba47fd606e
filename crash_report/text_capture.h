#pragma once

// The object through which the debugger engine hands over what it prints, in pieces that respect no line ends.

// clang-format off
#include <windows.h>
#include <dbgeng.h>
// clang-format on

#include <exception>
#include <string>

namespace zocrash {

// Part of the engine context that registers it; references that the engine takes do not count. An exception must not
// unwind through the engine's frames, so that one is kept until Take().
class TextCaptureCallbacks : public IDebugOutputCallbacks {
  public:
    // The engine releases but never destroys it; its own type is what is destroyed.
    virtual ~TextCaptureCallbacks() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, PVOID* object) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return 1; }
    ULONG STDMETHODCALLTYPE Release() noexcept override { return 1; }
    HRESULT STDMETHODCALLTYPE Output(ULONG mask, PCSTR text) noexcept override;

    // What was printed since the last call. Raises what went wrong while it was captured, as a rule std::bad_alloc.
    [[nodiscard]] std::string Take();

  private:
    std::string captured_;
    std::exception_ptr failure_;
};

}  // namespace zocrash
