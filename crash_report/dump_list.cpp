#include "dump_list.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <tuple>

#include "errors.h"
#include "files.h"
#include "owned_handles.h"

namespace zocrash {

namespace {

std::uint64_t Join(DWORD high, DWORD low) {
    return std::uint64_t{high} << 32 | low;
}

std::optional<std::uint64_t> LastWrite(const std::wstring& path) {
    WIN32_FIND_DATAW found{};
    const zo::OwnedFind search(FindFirstFileW(path.c_str(), &found));
    if (!search) return std::nullopt;
    return Join(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
}

// The directory entry of a link has the size of the link; the file behind it is what counts.
std::optional<std::uint64_t> FileSize(const WIN32_FIND_DATAW& found, const std::wstring& path) {
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        return Join(found.nFileSizeHigh, found.nFileSizeLow);
    }
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const zo::OwnedFile file(
        CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.Get(), &size)) return std::nullopt;
    return static_cast<std::uint64_t>(size.QuadPart);
}

void TakeIfNew(const WIN32_FIND_DATAW& found, const std::filesystem::path& folder, std::uint64_t stored,
               std::uint64_t sizeLimit, DumpList& list) {
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return;
    std::wstring path = (folder / found.cFileName).wstring();
    const std::optional<std::uint64_t> size = FileSize(found, path);
    if (!size || *size > sizeLimit) return;

    // Read by the file's own path: the time in the folder's listing can lag behind.
    const std::optional<std::uint64_t> lastWrite = LastWrite(path);
    if (!lastWrite || *lastWrite <= stored) return;
    list.push_back({std::move(path), *lastWrite});
}

}  // namespace

DumpList FindNewDumps(const std::wstring& folder, std::uint64_t stored, std::uint64_t sizeLimit) {
    DumpList list;
    const std::filesystem::path folderPath(folder);
    WIN32_FIND_DATAW found{};
    const zo::OwnedFind search(FindFirstFileW((folderPath / L"*").c_str(), &found));
    if (!search) return list;

    do
        TakeIfNew(found, folderPath, stored, sizeLimit, list);
    while (FindNextFileW(search.Get(), &found));
    if (const DWORD error = GetLastError(); error != ERROR_NO_MORE_FILES) {
        zo::RaiseFileSystemError("directory_iterator::operator++", folderPath, error);
    }
    // Ties are ordered by name, so that the order does not depend on the file system.
    std::sort(list.begin(), list.end(), [](const DumpEntry& a, const DumpEntry& b) {
        return std::tie(a.lastWrite, a.path) < std::tie(b.lastWrite, b.path);
    });
    return list;
}

std::int32_t TakeSingleDump(const std::wstring& path, DumpList& list) {
    std::uint32_t unknown = 0;
    // When it is unknown whether the file exists, the search below gives the error.
    if (!zo::Exists(path.c_str(), unknown) && unknown == 0) return zo::HresultFromWin32(ERROR_FILE_NOT_FOUND);
    const std::optional<std::uint64_t> lastWrite = LastWrite(path);
    if (!lastWrite) return zo::HresultFromWin32(GetLastError());
    list = {{path, *lastWrite}};
    return zo::kOk;
}

}  // namespace zocrash
