#pragma once

// The crash server's answer: a status, a blank and a message. Only the text counts; the HTTP status is not looked at.
// The bytes come from the network, and nothing in them is trusted.

#include <string>
#include <string_view>

namespace zocrash {

inline constexpr int kReplyAccepted = 200;  // to a query: send the dump; to a dump: stored
inline constexpr int kReplyKnown = 300;

struct ServerReply {
    int status = 0;  // 0 when there is no usable reply
    std::string message;
};

[[nodiscard]] ServerReply ParseServerReply(std::string_view text);

}  // namespace zocrash
