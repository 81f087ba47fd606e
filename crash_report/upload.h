#pragma once

// One HTTPS POST through the platform's Internet functions. Redirects, proxies, certificates and time limits are the
// platform's, under exactly the flags given here.

#include <atomic>
#include <cstdint>
#include <span>
#include <string>

#include "owned_internet.h"
#include "server_reply.h"

namespace zocrash {

// The user agent is in the ANSI code page. Gives the Win32 error's status.
[[nodiscard]] std::int32_t OpenInternetSession(const std::string& userAgent, zo::OwnedInternet& session);

// Status 0 without a session, for a URL that is not "https://..." and for a request that cannot be made or answered. A
// cancel ends the reading of a reply that comes in several pieces; it does not wake a call of the platform.
[[nodiscard]] ServerReply Post(const zo::OwnedInternet& session, const std::string& url,
                               std::span<const std::uint8_t> body, const std::atomic<bool>& cancel);

}  // namespace zocrash
