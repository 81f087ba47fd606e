#pragma once

// The replies of the list and drain commands: a header of 16 bytes, then records of one size whose layout the driver
// defines. This decides how much to allocate, how much of a reply to trust and how much of it to copy. Pure: bytes in,
// numbers out.

#include <cstdint>
#include <cstring>

#include "driver_records.h"

namespace zop {

inline constexpr std::uint32_t kReplyHeaderSize = 16;

// The whole reply buffer, in bytes. 2^32 records of any size still fit 64 bits.
[[nodiscard]] constexpr std::uint64_t ZopReplySize(std::uint32_t recordSize, std::uint32_t capacity) noexcept {
    return kReplyHeaderSize + std::uint64_t{recordSize} * capacity;
}

// A request states its output length in 32 bits; a larger buffer is offered up to there.
[[nodiscard]] constexpr std::uint32_t ZopLengthForDriver(std::uint64_t replySize) noexcept {
    return replySize < 0xFFFFFFFFu ? static_cast<std::uint32_t>(replySize) : 0xFFFFFFFFu;
}

// The header as the driver sent it: ZopDrainReplyHeader or ZopListReplyHeader. False when the reply is too short to
// have one. reply holds ReplySize bytes.
template <typename Header>
[[nodiscard]] bool ZopReadHeader(const void* reply, std::uint32_t returned, Header& header) noexcept {
    static_assert(sizeof(Header) == kReplyHeaderSize);
    if (returned < sizeof header) return false;
    std::memcpy(&header, reply, sizeof header);
    return true;
}

// Copies the records that the driver says it sent, but never more than capacity; returns how many. The count is not
// checked against the length of the reply: records that a driver announced and did not send are zeros. records may be
// null.
std::uint32_t ZopCopyRecords(const void* reply, std::uint32_t count, std::uint32_t recordSize, void* records,
                             std::uint32_t capacity) noexcept;

}  // namespace zop
