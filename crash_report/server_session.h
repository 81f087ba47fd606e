#pragma once

// The crash server, for one run: the Internet session, the address and the scrambler that documents pass through.

#include <atomic>
#include <cstdint>
#include <string>

#include "reporter_context.h"
#include "request_body.h"
#include "upload.h"

namespace zocrash {

class ServerSession {
  public:
    // The session reads the cancel flag of the reporter for as long as it lives.
    explicit ServerSession(const CrashReporterContext& reporter);

    // Gives the Win32 error's status.
    [[nodiscard]] std::int32_t Open();

    // Scrambles a document and posts it. Status 0 when the scrambler refuses or no reply comes.
    [[nodiscard]] ServerReply Send(RequestBody document) const;

  private:
    zo::OwnedInternet session_;
    std::string userAgent_;
    std::string url_;
    BodyScrambler scrambler_;
    void* scramblerContext_;
    const std::atomic<bool>& cancel_;
};

}  // namespace zocrash
