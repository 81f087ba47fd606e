#pragma once

// The object through which the debugger engine hands over what it prints, in pieces that respect no line ends.

// clang-format off
#include <windows.h>
#include <dbgeng.h>
// clang-format on

#include <string>
#include <utility>

namespace zocrash {

// Lives in the engine context that registers it. References that the engine takes do not count.
class TextCaptureCallbacks : public IDebugOutputCallbacks {
  public:
    // The engine releases but never destroys it; its own type is what is destroyed.
    virtual ~TextCaptureCallbacks() = default;

    STDMETHOD(QueryInterface)(REFIID interfaceId, PVOID* object) override;
    STDMETHOD_(ULONG, AddRef)() override { return 1; }
    STDMETHOD_(ULONG, Release)() override { return 1; }
    STDMETHOD(Output)(ULONG mask, PCSTR text) override;

    // What was printed since the last call.
    [[nodiscard]] std::string Take() { return std::exchange(captured_, {}); }

  private:
    std::string captured_;
};

}  // namespace zocrash
