#include "dedupe_record.h"

#include <windows.h>

#include <filesystem>

#include "files.h"
#include "owned_handles.h"

namespace zocrash {

std::uint64_t ReadDedupeRecord(const std::wstring& path) {
    if (path.empty()) return 0;
    const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return 0;
    std::uint64_t value = 0;
    DWORD read = 0;
    const BOOL done = ReadFile(file.Get(), &value, sizeof(value), &read, nullptr);
    return done && read == sizeof(value) ? value : 0;
}

void WriteDedupeRecord(const std::wstring& path, std::uint64_t lastWrite) {
    if (path.empty()) return;
    // If the record cannot be written, the same dumps are new again next time.
    static_cast<void>(zo::TryCreateDirectories(std::filesystem::path(path).parent_path()));
    const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return;
    DWORD written = 0;
    WriteFile(file.Get(), &lastWrite, sizeof(lastWrite), &written, nullptr);
}

}  // namespace zocrash
