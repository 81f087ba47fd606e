#pragma once

// The crash server's address, split as the Internet calls need it. Nothing but "https://", a host, an optional
// port and a path is understood; in particular the scheme is compared case-sensitively and there is no plain HTTP.

#include <cstdint>
#include <string>
#include <string_view>

namespace zocrash {

struct ServerUrl {
    std::string host;
    std::uint16_t port = 443;
    std::string path;  // begins with "/"
};

// False for another scheme, an empty host, or a port that is not a number from 1 to 65535.
[[nodiscard]] bool ParseServerUrl(std::string_view text, ServerUrl& url);

}  // namespace zocrash
