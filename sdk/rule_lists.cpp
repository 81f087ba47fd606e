// Reading the driver's rule tables back.

#include "channel.h"
#include "diagnostic_log.h"
#include "reply_buffer.h"
#include "zoprotector.h"

using namespace zop;

namespace {

std::int32_t ListRules(std::uint32_t code, std::uint32_t entrySize, void* entries, std::uint32_t capacity,
                       std::uint32_t* count, std::uint32_t* total) {
    if (count == nullptr || (capacity != 0 && entries == nullptr)) return ZOP_E_INVALID_ARG;
    *count = 0;
    if (total != nullptr) *total = 0;
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;

    const ZopReplyBuffer reply(entrySize, capacity);
    std::uint32_t returned = 0;
    const std::int32_t status = ZopSendIoctl(code, nullptr, 0, reply.Bytes(), reply.Length(), &returned);
    if (status < 0) return status;
    ZopListReplyHeader header{};
    if (!ZopReadHeader(reply.Bytes(), returned, header)) return ZOP_E_FAILED;  // the event drains accept this

    const std::uint32_t copied = ZopCopyRecords(reply.Bytes(), header.returned, entrySize, entries, capacity);
    *count = copied;
    if (total != nullptr) *total = header.total;
    if (header.truncated != 0) {
        ZopLogFormat(kLogWarning,
                     "ListRules(ioctl=0x{:08X}): {} rules truncated (total={}, returned={}) -- supply a larger buffer",
                     code, std::uint32_t{header.truncated}, std::uint32_t{header.total}, copied);
    }
    return ZOP_OK;
}

}  // namespace

int32_t ZoProtector_ListProcessProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total) {
    return ListRules(ZOP_IOCTL_LIST_PROCESS_RULES, ZOP_PROCESS_ENTRY_SIZE, entries, capacity, count, total);
}

int32_t ZoProtector_ListFileProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total) {
    return ListRules(ZOP_IOCTL_LIST_FILE_RULES, ZOP_FILE_ENTRY_SIZE, entries, capacity, count, total);
}

int32_t ZoProtector_ListRegistryProtectRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total) {
    return ListRules(ZOP_IOCTL_LIST_REGISTRY_RULES, ZOP_REGISTRY_ENTRY_SIZE, entries, capacity, count, total);
}

int32_t ZoProtector_ListDllWhitelistRules(void* entries, uint32_t capacity, uint32_t* count, uint32_t* total) {
    return ListRules(ZOP_IOCTL_LIST_DLL_WHITELIST, ZOP_DLL_ENTRY_SIZE, entries, capacity, count, total);
}
