#pragma once

// The document of one pipeline call: its fields, the Internet session that it is sent through and the scrambler. The
// fields are set and overwritten but never cleared, so that a later query still carries the stack and the dump of the
// full document before it. The server's side relies on that being so; it is part of the protocol.

#include <cstdint>

#include "debug_engine.h"
#include "document.h"
#include "reporter_context.h"
#include "request_body.h"
#include "upload.h"

namespace zocrash {

class CrashProtocolDocument {
  public:
    // Opens the session and fills the fields that every document has.
    [[nodiscard]] std::int32_t Open(const CrashReporterContext& reporter);

    // The short document that names the crash.
    [[nodiscard]] std::int32_t BuildQuery(const DumpAnalysisResult& analysis, RequestBody& body);

    // The same with the engine's text and the whole dump. Needs at most four times the dump's size: the field's base64,
    // the rendered text and the scrambled body, each 4/3 of it.
    [[nodiscard]] std::int32_t BuildFullDocument(const DumpAnalysisResult& analysis, RequestBody& body);

    [[nodiscard]] ServerReply Send(RequestBody& body) const { return Post(session_, serverUrl_, body.Frame()); }

  private:
    void FillStartFields(const CrashReportSettings& settings);
    [[nodiscard]] std::int32_t Build(RequestBody& body) const;

    DocumentFields fields_;
    OwnedInternet session_;
    std::string serverUrl_;
    BodyScrambler scrambler_ = nullptr;
    void* scramblerContext_ = nullptr;
};

}  // namespace zocrash
