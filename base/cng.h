#pragma once

// Hashing, RSA over a SHA-256 digest, and random bytes, from the platform's CNG. What the product does with them, and
// how a failure is reported, is for the rooms; results here are NTSTATUS values (negative is failure).

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "owned_handles.h"

namespace zo {

using Sha256Digest = std::array<std::uint8_t, 32>;
using Md5Digest = std::array<std::uint8_t, 16>;

// A provider and one hash object that is used over and over: finishing readies it for the next message. Opening costs
// far more than hashing a small file, so open one for each call of an export, not one for each file.
class Hasher {
  public:
    // BCRYPT_SHA256_ALGORITHM or BCRYPT_MD5_ALGORITHM. A failure to open it is that of every use.
    explicit Hasher(const wchar_t* algorithm);
    [[nodiscard]] std::int32_t Update(const void* bytes, std::size_t size);
    // The digest's length must be the algorithm's.
    [[nodiscard]] std::int32_t Finish(std::span<std::uint8_t> digest);
    // Drops a message that was begun.
    void Discard();

  private:
    OwnedAlgorithm provider_;
    OwnedHash hash_;  // destroyed before its provider
    std::int32_t opened_;
};

// One message in one call.
[[nodiscard]] std::int32_t HashOnce(const wchar_t* algorithm, std::span<const std::uint8_t> bytes,
                                    std::span<std::uint8_t> digest);

// PKCS #1 v1.5 over a SHA-256 digest.
[[nodiscard]] std::int32_t SignDigest(BCRYPT_KEY_HANDLE key, const Sha256Digest& digest,
                                      std::vector<std::uint8_t>& signature);
[[nodiscard]] std::int32_t VerifyDigest(BCRYPT_KEY_HANDLE key, const Sha256Digest& digest,
                                        std::span<const std::uint8_t> signature);

// blobType: BCRYPT_RSAPUBLIC_BLOB or BCRYPT_RSAFULLPRIVATE_BLOB.
[[nodiscard]] std::int32_t ExportKey(BCRYPT_KEY_HANDLE key, const wchar_t* blobType, std::vector<std::uint8_t>& blob);

[[nodiscard]] std::int32_t FillRandom(std::span<std::uint8_t> bytes);

}  // namespace zo
