#pragma once

// The debugger engine: one object with the client and the control interface, as the platform's own has it. It opens one
// dump at a time. A dump is only named by OpenDumpFile; what it holds is there from the end of WaitForEvent on.

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dump_text.h"
#include "engine_script.h"
#include "kernel_dump.h"
#include "owned_handles.h"
#include "unimplemented_slots.h"

namespace zoengine {

// What a call that the script makes fail leaves in the caller's variable: a caller that uses it crashes.
inline void* const kJunkPointer = reinterpret_cast<void*>(0x10);

class Engine final : public ClientSlots, public ControlSlots {
  public:
    // Made with one reference.
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // What QueryInterface does when no script forbids it.
    HRESULT Give(REFIID id, PVOID* object);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, PVOID* object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE OpenDumpFile(PCSTR path) override;
    HRESULT STDMETHODCALLTYPE EndSession(ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetOutputCallbacks(PDEBUG_OUTPUT_CALLBACKS* callbacks) override;
    HRESULT STDMETHODCALLTYPE SetOutputCallbacks(PDEBUG_OUTPUT_CALLBACKS callbacks) override;
    HRESULT STDMETHODCALLTYPE GetOutputMask(PULONG mask) override;
    HRESULT STDMETHODCALLTYPE SetOutputMask(ULONG mask) override;
    HRESULT STDMETHODCALLTYPE FlushCallbacks() override;

    HRESULT STDMETHODCALLTYPE WaitForEvent(ULONG flags, ULONG timeout) override;
    HRESULT STDMETHODCALLTYPE ReadBugCheckData(PULONG code, PULONG64 arg1, PULONG64 arg2, PULONG64 arg3,
                                               PULONG64 arg4) override;
    HRESULT STDMETHODCALLTYPE OutputStackTrace(ULONG outputControl, PDEBUG_STACK_FRAME frames, ULONG framesSize,
                                               ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetLastEventInformation(PULONG type, PULONG processId, PULONG threadId, PVOID extra,
                                                      ULONG extraSize, PULONG extraUsed, PSTR description,
                                                      ULONG descriptionSize, PULONG descriptionUsed) override;
    HRESULT STDMETHODCALLTYPE IsPointer64Bit() override;
    HRESULT STDMETHODCALLTYPE GetDebuggeeType(PULONG debuggeeClass, PULONG qualifier) override;
    HRESULT STDMETHODCALLTYPE GetExecutionStatus(PULONG status) override;

  private:
    ~Engine() { ReplaceCallbacks(nullptr); }

    // Does what the script has for the step, then the step's own work unless the script makes it fail, and records it.
    template <typename Work>
    HRESULT Step(std::string_view step, std::string_view arguments, Work work);
    [[nodiscard]] std::optional<HRESULT> Misbehave(const std::vector<ScriptLine>& lines);

    HRESULT Open(const char* path);
    HRESULT Load();
    void Print(std::uint32_t mask, std::string_view text);
    void Print(const std::vector<OutputText>& texts);
    HRESULT ReplaceCallbacks(PDEBUG_OUTPUT_CALLBACKS callbacks);
    [[nodiscard]] std::string DumpName() const;

    std::atomic<ULONG> references_ = 1;
    PDEBUG_OUTPUT_CALLBACKS callbacks_ = nullptr;
    ULONG outputMask_ = DEBUG_OUTPUT_NORMAL | DEBUG_OUTPUT_ERROR | DEBUG_OUTPUT_WARNING;
    std::size_t pieces_ = 0;  // printed so far; picks the next one's size
    std::string path_;        // of the open dump, as the caller gave it
    zo::OwnedFile file_;
    std::optional<KernelDump> dump_;
};

}  // namespace zoengine
