#include "ring_reply.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace zop {

std::uint32_t ZopCopyRecords(const void* reply, std::uint32_t count, std::uint32_t recordSize, void* records,
                             std::uint32_t capacity) noexcept {
    const std::uint32_t copied = std::min(count, capacity);
    if (copied > 0 && records != nullptr) {
        const auto* first = static_cast<const std::uint8_t*>(reply) + kReplyHeaderSize;
        std::memcpy(records, first, static_cast<std::size_t>(recordSize) * copied);
    }
    return copied;
}

}  // namespace zop
