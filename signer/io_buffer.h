#pragma once

// The block of memory that an operation reads listings and file contents into. It is allocated once and not cleared:
// clearing it costs more than reading a small tree.

#include <cstddef>
#include <cstdint>
#include <memory>

namespace zosigner {

class IoBuffer {
  public:
    static constexpr std::size_t kBytes = 65536;

    [[nodiscard]] void* Get() const { return block_.get(); }

  private:
    // Listing records must be aligned to eight bytes.
    std::unique_ptr<std::uint64_t[]> block_ =
        std::make_unique_for_overwrite<std::uint64_t[]>(kBytes / sizeof(std::uint64_t));
};

}  // namespace zosigner
