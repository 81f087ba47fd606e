#pragma once

// The buffer that a list or drain command fills: one zeroed block of the process heap for the whole reply.

#include <cstddef>
#include <cstdint>
#include <new>

#include "owned_handles.h"
#include "ring_reply.h"

namespace zop {

class ReplyBuffer {
  public:
    // Raises std::bad_alloc.
    ReplyBuffer(std::uint32_t recordSize, std::uint32_t capacity)
        : size_(ReplySize(recordSize, capacity)), block_(static_cast<std::size_t>(size_)) {
        if (!block_) throw std::bad_alloc();
    }

    [[nodiscard]] void* Bytes() const noexcept { return block_.Get(); }
    [[nodiscard]] std::uint32_t Length() const noexcept { return LengthForDriver(size_); }

  private:
    std::uint64_t size_;
    zo::HeapBlock block_;
};

}  // namespace zop
