#include "server_session.h"

#include <utility>

#include "text.h"

namespace zocrash {

ServerSession::ServerSession(const CrashReporterContext& reporter)
    : userAgent_(zo::AnsiFromWide(reporter.settings.toolName)),
      url_(zo::AnsiFromWide(reporter.settings.serverUrl)),
      scrambler_(reporter.scrambler),
      scramblerContext_(reporter.scramblerContext),
      cancel_(reporter.cancel) {}

std::int32_t ServerSession::Open() {
    return OpenInternetSession(userAgent_, session_);
}

ServerReply ServerSession::Send(RequestBody document) const {
    RequestBody body;
    if (ScrambleDocument(std::move(document), scrambler_, scramblerContext_, body) < 0) return {};
    return Post(session_, url_, body.Frame(), cancel_);
}

}  // namespace zocrash
