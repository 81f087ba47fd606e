#pragma once

// The system's debugger engine, loaded at run time, and its analysis of one kernel dump.

#include <cstdint>
#include <string>

#include "owned_handles.h"
#include "text_capture.h"

namespace zocrash {

// All text is as the engine gave it, in the system's ANSI code page.
struct DumpAnalysisResult {
    std::string dumpPath;
    std::string loadOutput;    // printed while the dump was brought to its first event
    std::string analysisText;  // the bugcheck line and the stack trace
    std::string signature;     // MD5 of analysisText, 32 lower-case digits
    std::uint64_t exceptionAddress = 0;
    std::uint64_t dumpStamp = 0;
};

// One for each run; analyses one dump at a time. Used by one thread.
class DebugEngine {
  public:
    DebugEngine() = default;
    DebugEngine(const DebugEngine&) = delete;
    DebugEngine& operator=(const DebugEngine&) = delete;
    ~DebugEngine();

    // Loads "dbghelp.dll" and "dbgeng.dll" from the executable's folder or else the system's, by full path.
    [[nodiscard]] std::int32_t Open();

    // The engine takes narrow paths only. When the bugcheck data cannot be read, the result keeps what was filled
    // before: the path, the stamp and the engine's first text.
    [[nodiscard]] std::int32_t Analyse(const std::string& dumpPath, std::uint64_t dumpStamp,
                                       DumpAnalysisResult& result);

  private:
    [[nodiscard]] std::int32_t LoadLibraries();
    [[nodiscard]] std::int32_t Describe(DumpAnalysisResult& result);
    [[nodiscard]] std::uint64_t ExceptionAddress();

    zo::OwnedModule helpLibrary_;
    zo::OwnedModule engineLibrary_;
    zo::OwnedInterface<IDebugClient> client_;
    zo::OwnedInterface<IDebugControl> control_;
    TextCaptureCallbacks output_;
};

}  // namespace zocrash
