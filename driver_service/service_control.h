#pragma once

// The parts of service control that installation and removal share.

#include <windows.h>

#include <cstdint>

namespace zop {

// The service manager's start type for a caller's number: 0 to 4 are its own, anything else is on demand.
[[nodiscard]] constexpr DWORD ZopServiceStartType(std::uint32_t startType) noexcept {
    return startType <= SERVICE_DISABLED ? startType : SERVICE_DEMAND_START;
}

// Asks the service to stop and waits until it has; about 15 seconds at most, then 0x8007041D. The service must be open
// for SERVICE_STOP and SERVICE_QUERY_STATUS.
[[nodiscard]] std::int32_t ZopStopAndWait(SC_HANDLE service);

}  // namespace zop
