#include "cng.h"

#include <algorithm>

namespace zo {

namespace {

// CNG takes lengths as 32-bit numbers. A small part of what they can hold costs nothing.
constexpr std::size_t kLargestPiece = 0x100000;

// CNG takes its inputs through pointers to non-const bytes, which it does not write to.
PUCHAR Input(const void* bytes) {
    return static_cast<PUCHAR>(const_cast<void*>(bytes));
}

ULONG Length(std::size_t size) {
    return static_cast<ULONG>(size);
}

BCRYPT_PKCS1_PADDING_INFO Sha256Padding() {
    return {BCRYPT_SHA256_ALGORITHM};
}

}  // namespace

Hasher::Hasher(const wchar_t* algorithm)
    : opened_(BCryptOpenAlgorithmProvider(provider_.Out(), algorithm, nullptr, 0)) {
    if (opened_ < 0) return;
    opened_ = BCryptCreateHash(provider_.Get(), hash_.Out(), nullptr, 0, nullptr, 0, BCRYPT_HASH_REUSABLE_FLAG);
}

std::int32_t Hasher::Update(const void* bytes, std::size_t size) {
    if (opened_ < 0) return opened_;
    const auto* next = static_cast<const std::uint8_t*>(bytes);
    while (size > 0) {
        const std::size_t piece = std::min(size, kLargestPiece);
        if (const NTSTATUS status = BCryptHashData(hash_.Get(), Input(next), Length(piece), 0); status < 0)
            return status;
        next += piece;
        size -= piece;
    }
    return 0;
}

std::int32_t Hasher::Finish(std::span<std::uint8_t> digest) {
    return opened_ < 0 ? opened_ : BCryptFinishHash(hash_.Get(), digest.data(), Length(digest.size()), 0);
}

void Hasher::Discard() {
    Sha256Digest unused{};
    // The result does not matter: a hash that cannot be finished fails again at the next message.
    static_cast<void>(Finish(unused));
}

std::int32_t HashOnce(const wchar_t* algorithm, std::span<const std::uint8_t> bytes, std::span<std::uint8_t> digest) {
    Hasher hasher(algorithm);
    if (const std::int32_t status = hasher.Update(bytes.data(), bytes.size()); status < 0) return status;
    return hasher.Finish(digest);
}

std::int32_t SignDigest(BCRYPT_KEY_HANDLE key, const Sha256Digest& digest, std::vector<std::uint8_t>& signature) {
    BCRYPT_PKCS1_PADDING_INFO padding = Sha256Padding();
    ULONG length = 0;
    if (const NTSTATUS status = BCryptSignHash(key, &padding, Input(digest.data()), Length(digest.size()), nullptr, 0,
                                               &length, BCRYPT_PAD_PKCS1);
        status < 0) {
        return status;
    }
    signature.resize(length);
    const NTSTATUS status = BCryptSignHash(key, &padding, Input(digest.data()), Length(digest.size()), signature.data(),
                                           length, &length, BCRYPT_PAD_PKCS1);
    signature.resize(status < 0 ? 0 : length);
    return status;
}

std::int32_t VerifyDigest(BCRYPT_KEY_HANDLE key, const Sha256Digest& digest, std::span<const std::uint8_t> signature) {
    BCRYPT_PKCS1_PADDING_INFO padding = Sha256Padding();
    return BCryptVerifySignature(key, &padding, Input(digest.data()), Length(digest.size()), Input(signature.data()),
                                 Length(signature.size()), BCRYPT_PAD_PKCS1);
}

std::int32_t ExportKey(BCRYPT_KEY_HANDLE key, const wchar_t* blobType, std::vector<std::uint8_t>& blob) {
    ULONG length = 0;
    if (const NTSTATUS status = BCryptExportKey(key, nullptr, blobType, nullptr, 0, &length, 0); status < 0) {
        return status;
    }
    blob.resize(length);
    const NTSTATUS status = BCryptExportKey(key, nullptr, blobType, blob.data(), length, &length, 0);
    blob.resize(status < 0 ? 0 : length);
    return status;
}

std::int32_t FillRandom(std::span<std::uint8_t> bytes) {
    return BCryptGenRandom(nullptr, bytes.data(), Length(bytes.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
}

}  // namespace zo
