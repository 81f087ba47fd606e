#include "ring_reply.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace zop {

namespace {

template <typename Header>
bool Read(const void* reply, std::uint32_t returned, Header& header) noexcept {
    static_assert(sizeof(Header) == kReplyHeaderSize);
    if (returned < sizeof header) return false;
    std::memcpy(&header, reply, sizeof header);
    return true;
}

}  // namespace

bool ReadHeader(const void* reply, std::uint32_t returned, ZopDrainReplyHeader& header) noexcept {
    return Read(reply, returned, header);
}

bool ReadHeader(const void* reply, std::uint32_t returned, ZopListReplyHeader& header) noexcept {
    return Read(reply, returned, header);
}

std::uint32_t CopyRecords(const void* reply, std::uint32_t count, std::uint32_t recordSize, void* records,
                          std::uint32_t capacity) noexcept {
    const std::uint32_t copied = std::min(count, capacity);
    if (copied > 0 && records != nullptr) {
        const auto* first = static_cast<const std::uint8_t*>(reply) + kReplyHeaderSize;
        std::memcpy(records, first, static_cast<std::size_t>(recordSize) * copied);
    }
    return copied;
}

}  // namespace zop
