#pragma once

// The channel to the driver: the handle to its control device, and the routine that sends every command. Only
// ZoProtector_Initialize and ZoProtector_Uninitialize open and close the handle. The commands are in the sources of
// their families.

#include <cstdint>
#include <string>
#include <string_view>

#include "text.h"

namespace zop {

// Set from a successful handshake until ZoProtector_Uninitialize.
[[nodiscard]] bool ZopIsInitialized() noexcept;

// ZoProtector_Uninitialize for the moment at which the library is unloaded or the process ends. It waits for no lock,
// and no failure of the log leaves it; the device and the log file are closed in any case.
void ZopCloseAtDetach() noexcept;

// Sends one command and waits for it. bytesReturned, which may be null, receives the length of the reply, also when the
// command fails; it stays as it is while the device is closed (ZOP_E_NOT_INITIALIZED). Win32 errors that have no status
// of their own become ZOP_E_FAILED and a line in the log.
[[nodiscard]] std::int32_t ZopSendIoctl(std::uint32_t code, const void* in, std::uint32_t inLength, void* out,
                                        std::uint32_t outLength, std::uint32_t* bytesReturned);

// For log lines.
[[nodiscard]] inline std::string ZopWideToUtf8(std::wstring_view wide) {
    return zo::Utf8FromWide(wide);
}

}  // namespace zop
