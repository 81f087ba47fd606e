#pragma once

// Whether a crash server can be reached and its certificate is accepted, found out without sending a report: a HEAD
// request, which has no body, through the same functions of the system and with the same proxy as a report.

#include <cstdint>
#include <string>

#include "console.h"

namespace zoctl {

// Whether a report can be addressed to it: https:// in lower case, a host, and where a port is given one from 1 to
// 65535.
[[nodiscard]] bool IsServerUrl(const std::string& url);

// 0 when the server answered, whatever it answered; otherwise the Win32 error: ERROR_INTERNET_TIMEOUT after the time
// limit, ERROR_CANCELLED after Ctrl-C. The URL must be one that IsServerUrl accepts.
[[nodiscard]] std::uint32_t ProbeServer(const std::string& url, unsigned milliseconds,
                                        const Cancellation& cancellation);

// What the error means, in one sentence part without a full stop: "the certificate is not trusted".
[[nodiscard]] std::string ServerErrorText(std::uint32_t error);

}  // namespace zoctl
