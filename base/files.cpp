#include "files.h"

#include <windows.h>

#include <limits>
#include <system_error>

#include "long_path.h"
#include "owned_handles.h"

namespace zo {

namespace {

std::uint32_t MakeFolder(const std::wstring& path) {
    if (CreateDirectoryW(path.c_str(), nullptr)) return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return error;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? ERROR_SUCCESS : ERROR_DIRECTORY;
}

// The standard library's create_directories refuses long paths and the long form on some systems.
std::uint32_t MakeFolders(std::wstring path) {
    // A drive's root keeps its separator: "\\?\C:" names the volume, which is no folder.
    while (path.ends_with(L'\\') && !path.ends_with(L":\\"))
        path.pop_back();
    if (const std::uint32_t error = MakeFolder(path); error != ERROR_PATH_NOT_FOUND) return error;
    const std::size_t parent = path.find_last_of(L'\\');
    if (parent == std::wstring::npos || parent == 0 || path.back() == L'\\') return ERROR_PATH_NOT_FOUND;
    if (const std::uint32_t error = MakeFolders(path.substr(0, parent + 1)); error != ERROR_SUCCESS) return error;
    return MakeFolder(path);
}

}  // namespace

bool FileReadResult::Absent() const noexcept {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

FileReadResult ReadWholeFile(const wchar_t* path, std::string& bytes, Sharing sharing) {
    using Step = FileReadResult::Step;
    bytes.clear();
    const DWORD shared =
        sharing == Sharing::kRead ? FILE_SHARE_READ : FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const OwnedFile file(CreateFileW(LongForm(path).c_str(), GENERIC_READ, shared, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return {Step::kOpen, GetLastError()};

    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.Get(), &size)) return {Step::kRead, GetLastError()};
    if (size.QuadPart > std::numeric_limits<DWORD>::max()) return {Step::kRead, ERROR_FILE_TOO_LARGE};

    bytes.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
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

void RaiseFileSystemError(const char* operation, const std::filesystem::path& path, std::uint32_t error) {
    throw std::filesystem::filesystem_error(operation, path,
                                            std::error_code(static_cast<int>(error), std::system_category()));
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
    if (error != 0) RaiseFileSystemError("exists", path, error);
    return there;
}

std::uint32_t TryCreateDirectories(const std::filesystem::path& folder) {
    if (folder.empty()) return ERROR_SUCCESS;
    return MakeFolders(LongForm(folder.c_str()));
}

void CreateDirectories(const std::filesystem::path& folder) {
    const std::uint32_t error = TryCreateDirectories(folder);
    if (error != ERROR_SUCCESS) RaiseFileSystemError("create_directories", folder, error);
}

}  // namespace zo
