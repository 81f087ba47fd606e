#include "file_hash.h"

#include "errors.h"
#include "owned_handles.h"

namespace zosigner {

std::int32_t FileHasher::Hash(const wchar_t* path, zo::Sha256Digest& digest) {
    const zo::OwnedFile file(
        CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) return zo::HresultFromWin32(GetLastError());
    if (const std::int32_t status = Feed(file.Get()); status < 0) {
        sha256_.Discard();
        return status;
    }
    return sha256_.Finish(digest);
}

std::int32_t FileHasher::Feed(HANDLE file) {
    for (;;) {
        DWORD read = 0;
        if (!ReadFile(file, buffer_.Get(), IoBuffer::kBytes, &read, nullptr))
            return zo::HresultFromWin32(GetLastError());
        if (read == 0) return zo::kOk;
        if (const std::int32_t status = sha256_.Update(buffer_.Get(), read); status < 0) return status;
    }
}

}  // namespace zosigner
