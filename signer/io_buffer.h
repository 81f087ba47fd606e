#pragma once

// The one block of memory that an operation reads through, listings and file contents alike. Taken once and not
// cleared: for a small tree that costs more than the reading.

#include <cstddef>
#include <cstdint>
#include <memory>

namespace zosigner {

class IoBuffer {
  public:
    static constexpr std::size_t kBytes = 65536;

    [[nodiscard]] void* Get() const { return block_.get(); }

  private:
    // Listing records want to be aligned to eight bytes.
    std::unique_ptr<std::uint64_t[]> block_ =
        std::make_unique_for_overwrite<std::uint64_t[]>(kBytes / sizeof(std::uint64_t));
};

}  // namespace zosigner
