#pragma once

// SHA-256 of files, with one hash object for as many files as an operation has.

#include <cstddef>
#include <cstdint>

#include "cng.h"
#include "io_buffer.h"

namespace zosigner {

class FileHasher {
  public:
    explicit FileHasher(IoBuffer& buffer);

    // An HRESULT for what the file system refuses, an NTSTATUS for what the cryptography does.
    [[nodiscard]] std::int32_t Hash(const wchar_t* path, zo::Sha256Digest& digest);

  private:
    [[nodiscard]] std::int32_t Feed(HANDLE file);

    zo::Hasher hasher_;
    std::int32_t opened_;  // a failure is that of every file
    IoBuffer& buffer_;
};

}  // namespace zosigner
