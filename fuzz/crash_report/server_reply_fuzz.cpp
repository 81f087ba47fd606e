// The server's reply and the server's URL, from bytes that nobody vouches for. The first byte says which.

#include <string_view>

#include "require.h"
#include "server_reply.h"
#include "server_url.h"

namespace {

void CheckReply(std::string_view text) {
    const zocrash::ServerReply reply = zocrash::ParseServerReply(text);
    Require(reply.status >= -99 && reply.status <= 999);
    // What lets a dump out.
    Require(reply.status != zocrash::kReplyAccepted || text.starts_with("200"));
    Require(reply.status != zocrash::kReplyKnown || text.starts_with("300"));
    Require(reply.message.empty() || text.find(' ') != std::string_view::npos);
    Require(reply.message.empty() || (reply.message.back() != '\r' && reply.message.back() != '\n'));
}

void CheckUrl(std::string_view text) {
    zocrash::ServerUrl url;
    if (!zocrash::ParseServerUrl(text, url)) return;
    Require(text.starts_with("https://" + url.host));
    Require(!url.host.empty() && url.host.find_first_of("/:") == std::string::npos);
    Require(url.port != 0 && url.path.starts_with('/'));
    Require(url.path == "/" || text.ends_with(url.path));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    data[0] == 'r' ? CheckReply(text) : CheckUrl(text);
    return 0;
}
