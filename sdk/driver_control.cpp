// The driver-wide switches and queries.

#include "channel.h"
#include "diagnostic_log.h"
#include "driver_records.h"
#include "rule_request.h"
#include "zoprotector.h"

using namespace zop;

int32_t ZoProtector_GetStatus(ZopStatus* status) {
    if (status == nullptr) return ZOP_E_INVALID_ARG;
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    ZopStatusReply reply{};
    const std::int32_t result = ZopSendIoctl(ZOP_IOCTL_GET_STATUS, nullptr, 0, &reply, sizeof reply, nullptr);
    if (result < 0) return result;
    const auto& pairs = reply.pairs;
    *status = {pairs[0].flag, pairs[0].count, pairs[1].flag, pairs[1].count,
               pairs[2].flag, pairs[2].count, pairs[3].flag, pairs[3].count};
    return ZOP_OK;
}

int32_t ZoProtector_SetMasterEnabled(int32_t enable) {
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    const ZopToggleRecord record{ZopFlag(enable)};
    return ZopSendAndLog(ZOP_IOCTL_SET_MASTER_ENABLED, record, "SetMasterEnabled: {}", ZopStateWord(enable));
}

int32_t ZoProtector_GetMasterEnabled(uint32_t* enabled) {
    // The standard code instead of ZOP_E_INVALID_ARG, here alone: callers rely on it.
    if (enabled == nullptr) return ZOP_E_STANDARD_INVALID_ARG;
    *enabled = 0;
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    ZopToggleRecord reply{};
    std::uint32_t returned = 0;
    const std::int32_t status = ZopSendIoctl(ZOP_IOCTL_GET_MASTER_ENABLED, nullptr, 0, &reply, sizeof reply, &returned);
    if (status >= 0 && returned > 0) *enabled = ZopFlag(reply.state);
    return status;
}

int32_t ZoProtector_ForceCrash() {
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    return ZopSendIoctl(ZOP_IOCTL_FORCE_CRASH, nullptr, 0, nullptr, 0, nullptr);
}
