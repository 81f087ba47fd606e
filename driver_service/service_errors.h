#pragma once

// The status of a Win32 error met while handling the driver's service, its registry keys and its file. The driver
// channel has a map of its own: there the same numbers mean other things.

#include <windows.h>

#include <cstdint>

#include "errors.h"
#include "zoprotector_status.h"

namespace zop {

[[nodiscard]] constexpr std::int32_t ZopMapServiceError(DWORD error) noexcept {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_SERVICE_DOES_NOT_EXIST:
            return ZOP_E_DRIVER_NOT_FOUND;
        case ERROR_ACCESS_DENIED:
            return ZOP_E_ACCESS_DENIED;
        case ERROR_INVALID_PARAMETER:
            return ZOP_E_INVALID_ARG;
        default:
            return zo::HresultFromWin32(error);
    }
}

// A name that does not fit in a path buffer.
inline constexpr std::int32_t kPathDoesNotFit = ZopMapServiceError(ERROR_INSUFFICIENT_BUFFER);

}  // namespace zop
