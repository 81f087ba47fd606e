#pragma once

// The buffer that a list or drain command fills: one zeroed block of memory for the whole reply.

#include <cstddef>
#include <cstdint>
#include <new>

#include "owned_handles.h"
#include "ring_reply.h"

namespace zop {

struct PagesKind {
    using Handle = void*;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle pages) noexcept { VirtualFree(pages, 0, MEM_RELEASE); }
};

class ZopReplyBuffer {
  public:
    // Raises std::bad_alloc.
    ZopReplyBuffer(std::uint32_t recordSize, std::uint32_t capacity) : size_(ZopReplySize(recordSize, capacity)) {
        const auto size = static_cast<std::size_t>(size_);
        if (size_ <= kMostFromHeap) {
            block_.Reset(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
        } else {
            // A heap can need half a minute to refuse terabytes; the system refuses at once.
            pages_.Reset(VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        }
        if (Bytes() == nullptr) throw std::bad_alloc();
    }

    [[nodiscard]] void* Bytes() const noexcept { return block_ ? block_.Get() : pages_.Get(); }
    [[nodiscard]] std::uint32_t Length() const noexcept { return ZopLengthForDriver(size_); }

  private:
    static constexpr std::uint64_t kMostFromHeap = 0xFFFFFFFFu;

    std::uint64_t size_;
    zo::Owned<zo::HeapKind> block_;
    zo::Owned<PagesKind> pages_;
};

}  // namespace zop
