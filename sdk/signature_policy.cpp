// How the driver judges code signatures: its policy, its verdict on one process, and the processes exempt from it.

#include "rule_request.h"
#include "zoprotector.h"

using namespace zop;

namespace {

// Query and refresh differ in the command only.
std::int32_t AskVerdict(std::uint32_t code, std::uint32_t pid, std::uint32_t* first, std::uint32_t* second) {
    if (first == nullptr || second == nullptr) return ZOP_E_INVALID_ARG;
    *first = 0;
    *second = 0;
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    const ZopPidRecord record{pid, 0};
    ZopSignatureReply reply{};
    std::uint32_t returned = 0;
    const std::int32_t status = ZopSendIoctl(code, &record, sizeof record, &reply, sizeof reply, &returned);
    if (status < 0 || returned < sizeof reply) return status;
    *first = ZopFlag(reply.first);
    *second = ZopFlag(reply.second);
    return ZOP_OK;
}

// The driver checks the pid; 0 is sent as well.
std::int32_t ChangeOverride(std::uint32_t code, std::uint32_t pid, std::string_view exportName) {
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    const ZopPidRecord record{pid, 0};
    return ZopSendAndLog(code, record, "{}: PID={}", exportName, pid);
}

}  // namespace

int32_t ZoProtector_SetSignaturePolicy(const ZopSignaturePolicy* policy) {
    if (policy == nullptr) return ZOP_E_INVALID_ARG;
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    const ZopSignaturePolicy record{policy->mode, policy->minLevel, {}};  // the caller's reserved bytes are not sent
    return ZopSendAndLog(ZOP_IOCTL_SET_SIGNATURE_POLICY, record, "SetSignaturePolicy: Mode={} MinLevel={}",
                         unsigned{record.mode}, unsigned{record.minLevel});
}

int32_t ZoProtector_GetSignaturePolicy(ZopSignaturePolicy* policy) {
    if (policy == nullptr) return ZOP_E_INVALID_ARG;
    *policy = {};
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;
    return ZopSendIoctl(ZOP_IOCTL_GET_SIGNATURE_POLICY, nullptr, 0, policy, sizeof *policy, nullptr);
}

int32_t ZoProtector_QueryPidSignature(uint32_t pid, uint32_t* first, uint32_t* second) {
    return AskVerdict(ZOP_IOCTL_QUERY_PID_SIGNATURE, pid, first, second);
}

int32_t ZoProtector_RefreshPidSignature(uint32_t pid, uint32_t* first, uint32_t* second) {
    return AskVerdict(ZOP_IOCTL_REFRESH_PID_SIGNATURE, pid, first, second);
}

int32_t ZoProtector_AddSignatureOverride(uint32_t pid) {
    return ChangeOverride(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, pid, "AddSignatureOverride");
}

int32_t ZoProtector_RemoveSignatureOverride(uint32_t pid) {
    return ChangeOverride(ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, pid, "RemoveSignatureOverride");
}

int32_t ZoProtector_ClearAllSignatureOverrides() {
    return ZopClear(ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES, "ClearAllSignatureOverrides");
}
