#pragma once

// The document of one run: its fields are set and overwritten but never cleared, so that a later query still carries
// the stack and the dump of the full document before it. That is part of the protocol, and servers expect it.

#include <cstdint>

#include "debug_engine.h"
#include "document.h"
#include "request_body.h"
#include "settings.h"

namespace zocrash {

class CrashProtocolDocument {
  public:
    // Fills the fields that every document has.
    explicit CrashProtocolDocument(const CrashReportSettings& settings);

    // The short document that names the crash.
    [[nodiscard]] RequestBody Query(const DumpAnalysisResult& analysis);

    // The same with the engine's text and the whole dump. Fails when either is missing. A request needs at most four
    // times the dump's size: the field's base64, the rendered text and the scrambled body, each 4/3 of it.
    [[nodiscard]] std::int32_t BuildFullDocument(const DumpAnalysisResult& analysis, RequestBody& document);

  private:
    DocumentFields fields_;
};

}  // namespace zocrash
