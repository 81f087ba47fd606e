// The driver's counters.

#include "channel.h"
#include "diagnostic_log.h"
#include "driver_records.h"
#include "zoprotector.h"

using namespace zop;

namespace {

constexpr std::uint32_t kFirstVersionWithBypassAttempts = 3;

}  // namespace

int32_t ZoProtector_GetStats(ZopStats* stats) {
    if (stats == nullptr) return ZOP_E_INVALID_ARG;
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    *stats = {};
    std::uint32_t returned = 0;
    const std::int32_t status = ZopSendIoctl(ZOP_IOCTL_GET_STATS, nullptr, 0, stats, sizeof *stats, &returned);
    if (status < 0) return status;
    if (returned < sizeof *stats) {  // an older driver with a shorter block
        ZopLogFormat(kLogWarning, "ZoProtector_GetStats: driver returned {} bytes, expected {} (version={})", returned,
                     sizeof *stats, stats->version);
    }
    return ZOP_OK;
}

int32_t ZoProtector_GetUnsignedBypassAttempts(uint32_t* attempts) {
    if (attempts == nullptr) return ZOP_E_INVALID_ARG;
    *attempts = 0;
    ZopStats stats{};
    if (const std::int32_t status = ZoProtector_GetStats(&stats); status < 0) return status;
    if (stats.version < kFirstVersionWithBypassAttempts) {
        ZopLogFormat(kLogWarning,
                     "ZoProtector_GetUnsignedBypassAttempts: driver reports stats v{} (<3); field unavailable",
                     stats.version);
        return ZOP_E_VERSION_MISMATCH;
    }
    *attempts = stats.unsignedBypassAttempts;
    return ZOP_OK;
}
