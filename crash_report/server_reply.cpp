#include "server_reply.h"

#include <algorithm>
#include <cstddef>

namespace zocrash {

namespace {

constexpr std::size_t kStatusDigits = 3;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// As the C library's atoi in the "C" locale: leading white space, one sign, digits up to the first other character.
int ReadInteger(std::string_view text) {
    constexpr std::string_view kSpace = " \t\n\v\f\r";
    text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int value = 0;  // three characters at most, so that it cannot overflow
    for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1))
        value = 10 * value + (text.front() - '0');
    return negative ? -value : value;
}

}  // namespace

ServerReply ParseServerReply(std::string_view text) {
    ServerReply reply;
    if (text.size() < kStatusDigits) return reply;

    const std::size_t blank = text.find(' ');
    reply.status = ReadInteger(text.substr(0, std::min(blank, kStatusDigits)));
    if (blank == std::string_view::npos) return reply;

    std::string_view message = text.substr(blank + 1);
    while (!message.empty() && (message.back() == '\r' || message.back() == '\n'))
        message.remove_suffix(1);
    reply.message = message;
    return reply;
}

}  // namespace zocrash
