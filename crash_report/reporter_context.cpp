#include "reporter_context.h"

#include <windows.h>

#include <memory>

#include "built_in_scrambler.h"
#include "text.h"

namespace zocrash {

namespace {

INIT_ONCE contextOnce = INIT_ONCE_STATIC_INIT;

// Freed when the library unloads, which must not happen during a run.
std::unique_ptr<CrashReporterContext> context;

// Reports the one-time initialisation as failed when creating the context raises, so that the next call tries again and
// no other thread waits for ever.
class Initialisation {
  public:
    Initialisation() = default;
    Initialisation(const Initialisation&) = delete;
    Initialisation& operator=(const Initialisation&) = delete;
    ~Initialisation() { InitOnceComplete(&contextOnce, context ? 0 : INIT_ONCE_INIT_FAILED, nullptr); }
};

}  // namespace

CrashReporterContext::CrashReporterContext() : settings(MakeSettings(nullptr)), scrambler(BuiltInScrambler) {}

void CrashReporterContext::Deliver(std::int32_t level, std::string_view utf8) const {
    logger(loggerContext, level, zo::WideFromUtf8(utf8).c_str());
}

CrashReporterContext& Reporter() {
    BOOL pending = FALSE;
    InitOnceBeginInitialize(&contextOnce, 0, &pending, nullptr);
    if (pending) {
        const Initialisation initialisation;
        context = std::make_unique<CrashReporterContext>();
    }
    return *context;
}

}  // namespace zocrash
