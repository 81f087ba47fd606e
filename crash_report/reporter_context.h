#pragma once

// The reporter's one process-wide state, made by whichever export is called first and kept until the library unloads.

#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>

#include "format.h"
#include "network_gate.h"
#include "settings.h"
#include "target_drivers.h"
#include "zocrashreport.h"

namespace zocrash {

class CrashReporterContext {
  public:
    CrashReporterContext();

    // Nothing is formatted while no logger is installed.
    template <typename... Args>
    void Log(std::int32_t level, zo::FormatString<Args...> format, Args&&... args) const {
        if (logger != nullptr) Deliver(level, zo::Format(format, std::forward<Args>(args)...));
    }

    CrashReportSettings settings;

    // The logger and the scrambler are read without a lock: they are set while no run is in progress.
    ZoCrashLogger logger = nullptr;
    void* loggerContext = nullptr;

    TargetDrivers targets;

    ZoCrashBodyScrambler scrambler;
    void* scramblerContext = nullptr;

    NetworkGate network;

    std::atomic<bool> cancel{false};

  private:
    void Deliver(std::int32_t level, std::string_view utf8) const;
};

[[nodiscard]] CrashReporterContext& Reporter();

}  // namespace zocrash
