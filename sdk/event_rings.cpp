// Draining the driver's two event rings. The caller keeps the read position; the library keeps nothing between polls.

#include <string_view>

#include "channel.h"
#include "diagnostic_log.h"
#include "reply_buffer.h"
#include "zoprotector.h"

using namespace zop;

namespace {

struct Ring {
    std::uint32_t code;
    std::uint32_t recordSize;
    std::string_view exportName;
    std::string_view sizeName;  // the driver's constant that the warning names
};

constexpr Ring kEventRing = {ZOP_IOCTL_DRAIN_EVENTS, ZOP_EVENT_RECORD_SIZE, "ZoProtector_DrainEvents",
                             "ZOP_EVENT_RING_SIZE"};
constexpr Ring kRegistryEventRing = {ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, ZOP_REGISTRY_EVENT_RECORD_SIZE,
                                     "ZoProtector_DrainRegistryEvents", "ZOP_REGISTRY_EVENT_RING_SIZE"};

void Store(std::uint32_t* output, std::uint32_t value) {
    if (output != nullptr) *output = value;
}

std::int32_t Drain(const Ring& ring, std::uint32_t lastRead, void* events, std::uint32_t capacity, std::uint32_t* count,
                   std::uint32_t* dropped, std::uint32_t* position) {
    if (events == nullptr || count == nullptr || capacity == 0) return ZOP_E_INVALID_ARG;
    *count = 0;
    Store(dropped, 0);
    Store(position, 0);
    if (!ZopIsInitialized()) return ZOP_E_NOT_INITIALIZED;

    const ZopReplyBuffer reply(ring.recordSize, capacity);
    const ZopDrainRequest request{lastRead, capacity};
    std::uint32_t returned = 0;
    const std::int32_t status =
        ZopSendIoctl(ring.code, &request, sizeof request, reply.Bytes(), reply.Length(), &returned);
    ZopDrainReplyHeader header{};
    // Unlike the rule lists, a poll whose reply has no header counts as one that found nothing.
    if (status < 0 || !ZopReadHeader(reply.Bytes(), returned, header)) return status;

    *count = ZopCopyRecords(reply.Bytes(), header.count, ring.recordSize, events, capacity);
    Store(dropped, header.dropped);
    Store(position, header.position);
    if (header.dropped != 0) {
        ZopLogFormat(kLogWarning, "{}: {} events dropped (writerSeq={} lastRead={}) -- poll faster or raise {}",
                     ring.exportName, std::uint32_t{header.dropped}, std::uint32_t{header.writerSeq}, lastRead,
                     ring.sizeName);
    }
    return status;
}

}  // namespace

int32_t ZoProtector_DrainEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count, uint32_t* dropped,
                                uint32_t* position) {
    return Drain(kEventRing, lastRead, events, capacity, count, dropped, position);
}

int32_t ZoProtector_DrainRegistryEvents(uint32_t lastRead, void* events, uint32_t capacity, uint32_t* count,
                                        uint32_t* dropped, uint32_t* position) {
    return Drain(kRegistryEventRing, lastRead, events, capacity, count, dropped, position);
}
