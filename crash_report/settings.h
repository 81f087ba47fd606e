#pragma once

// What the reporter was configured with, and the defaults behind it.

#include <cstdint>
#include <string>

#include "zocrashreport.h"

namespace zocrash {

// The local application data folder's ZOCRASH_DEFAULT_RECORD; empty, which switches the record off, when the
// system cannot name that folder.
[[nodiscard]] std::wstring DefaultComparePath();

// The address that reports are answered from, a build-time setting in the system's ANSI code page.
[[nodiscard]] const char* ContactAddress() noexcept;

struct CrashReportSettings {
    std::wstring serverUrl;
    std::wstring appName;
    std::wstring appVersion;
    std::wstring toolName;
    std::uint32_t lcid = 0;
    std::uint32_t toolVersionMajor = 0;
    std::uint32_t toolVersionMinor = 0;
    std::wstring minidumpDir;  // empty: found when a run begins
    std::wstring compareFilePath;
    bool uploadAll = false;
    std::uint64_t maxDumpBytes = 0;
    std::uint32_t networkWaitSeconds = 0;
};

// The defaults, replaced by what the record gives. A null record gives the defaults.
[[nodiscard]] CrashReportSettings MakeSettings(const ZoCrashReportConfig* config);

}  // namespace zocrash
