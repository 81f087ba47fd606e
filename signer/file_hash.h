#pragma once

// SHA-256 of files, with the one hash object of the operation.

#include <cstddef>
#include <cstdint>

#include "cng.h"
#include "io_buffer.h"

namespace zosigner {

class FileHasher {
  public:
    FileHasher(zo::Hasher& sha256, IoBuffer& buffer) : sha256_(sha256), buffer_(buffer) {}

    // Gives an HRESULT when the file cannot be read, an NTSTATUS when hashing fails.
    [[nodiscard]] std::int32_t Hash(const wchar_t* path, zo::Sha256Digest& digest);

  private:
    [[nodiscard]] std::int32_t Feed(HANDLE file);

    zo::Hasher& sha256_;
    IoBuffer& buffer_;
};

}  // namespace zosigner
