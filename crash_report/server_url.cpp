#include "server_url.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace zocrash {

namespace {

constexpr std::string_view kScheme = "https://";

bool ReadPort(std::string_view text, std::uint16_t& port) {
    // Characters after the number are ignored.
    return std::from_chars(text.data(), text.data() + text.size(), port).ec == std::errc{} && port != 0;
}

}  // namespace

bool ParseServerUrl(std::string_view text, ServerUrl& url) {
    if (!text.starts_with(kScheme)) return false;
    text.remove_prefix(kScheme.size());

    const std::size_t slash = std::min(text.find('/'), text.size());
    std::string_view host = text.substr(0, slash);
    const std::string_view path = text.substr(slash);

    std::uint16_t port = 443;
    if (const std::size_t colon = host.find(':'); colon != std::string_view::npos) {
        if (!ReadPort(host.substr(colon + 1), port)) return false;
        host = host.substr(0, colon);
    }
    if (host.empty()) return false;
    url.host = host;
    url.port = port;
    url.path = path.empty() ? std::string_view("/") : path;
    return true;
}

}  // namespace zocrash
