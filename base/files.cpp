#include "files.h"

#include <windows.h>

#include <limits>
#include <system_error>

#include "owned_handles.h"

namespace zo {

FileReadResult ReadWholeFile(const wchar_t* path, std::string& bytes) {
    using Step = FileReadResult::Step;
    bytes.clear();
    const OwnedFile file(
        CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return {Step::kOpen, GetLastError()};

    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.Get(), &size)) return {Step::kRead, GetLastError()};
    if (size.QuadPart > std::numeric_limits<DWORD>::max()) return {Step::kRead, ERROR_FILE_TOO_LARGE};

    bytes.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL done = ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    if (done && read == bytes.size()) return {};

    // A short read leaves no error of its own behind.
    const DWORD error = done ? ERROR_HANDLE_EOF : GetLastError();
    bytes.clear();
    return {Step::kRead, error};
}

std::uint32_t WriteWhole(void* file, std::string_view bytes) {
    if (bytes.size() > std::numeric_limits<DWORD>::max()) return ERROR_FILE_TOO_LARGE;
    DWORD written = 0;
    if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return GetLastError();
    return written == bytes.size() ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

bool Exists(const wchar_t* path, std::uint32_t& error) {
    error = ERROR_SUCCESS;
    if (GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES) return true;
    switch (const DWORD reason = GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_BAD_NETPATH:
        case ERROR_INVALID_NAME:
        case ERROR_DIRECTORY:
            break;
        default:
            error = reason;
    }
    return false;
}

bool Exists(const std::filesystem::path& path) {
    std::uint32_t error = 0;
    const bool there = Exists(path.c_str(), error);
    if (error != 0) {
        throw std::filesystem::filesystem_error("exists", path,
                                                std::error_code(static_cast<int>(error), std::system_category()));
    }
    return there;
}

void CreateDirectories(const std::filesystem::path& folder) {
    if (folder.empty()) return;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw std::filesystem::filesystem_error("create_directories", folder, error);
}

}  // namespace zo
