#include "file_hash.h"

#include "errors.h"
#include "owned_handles.h"

namespace zosigner {

namespace {

constexpr DWORD kPiece = 65536;

}  // namespace

FileHasher::FileHasher() : opened_(hasher_.Open(BCRYPT_SHA256_ALGORITHM)), buffer_(kPiece) {}

std::int32_t FileHasher::Hash(const wchar_t* path, zo::Sha256Digest& digest) {
    if (opened_ < 0) return opened_;
    const zo::OwnedFile file(
        CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) return zo::HresultFromWin32(GetLastError());
    if (const std::int32_t status = Feed(file.Get()); status < 0) {
        hasher_.Discard();
        return status;
    }
    return hasher_.Finish(digest);
}

std::int32_t FileHasher::Feed(HANDLE file) {
    for (;;) {
        DWORD read = 0;
        if (!ReadFile(file, buffer_.data(), kPiece, &read, nullptr)) return zo::HresultFromWin32(GetLastError());
        if (read == 0) return zo::kOk;
        if (const std::int32_t status = hasher_.Update(buffer_.data(), read); status < 0) return status;
    }
}

}  // namespace zosigner
