#pragma once

// Whole-file reads, and creating folders. The result names the step that failed and its Win32 error, for the caller's
// report.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace zo {

struct FileReadResult {
    enum class Step { kDone, kOpen, kRead };
    Step failedAt = Step::kDone;
    std::uint32_t error = 0;  // Win32

    explicit operator bool() const noexcept { return failedAt == Step::kDone; }
    // There is no such file, or no such folder on the way to it.
    [[nodiscard]] bool Absent() const noexcept;
};

// What others may do with a file while it is read.
enum class Sharing { kRead, kReadWriteDelete };

// GENERIC_READ, one read of the file's whole size; paths of any length. A file that shrinks in between is a failed
// read. Files of 4 GiB and more are refused as a failed read (ERROR_FILE_TOO_LARGE).
[[nodiscard]] FileReadResult ReadWholeFile(const wchar_t* path, std::string& bytes, Sharing sharing = Sharing::kRead);

// One write of all the bytes to an open file (a HANDLE). Gives the Win32 error, 0 when done; writing less is a failure.
[[nodiscard]] std::uint32_t WriteWhole(void* file, std::string_view bytes);

// Raises std::filesystem::filesystem_error for the operation, the path and the Win32 error.
[[noreturn]] void RaiseFileSystemError(const char* operation, const std::filesystem::path& path, std::uint32_t error);

// Whether there is a file or folder at the path; `error` (Win32) is not 0 when that cannot be determined.
[[nodiscard]] bool Exists(const wchar_t* path, std::uint32_t& error);
// The same, raising std::filesystem::filesystem_error("exists", ...) when that cannot be determined.
[[nodiscard]] bool Exists(const std::filesystem::path& path);

// Creates the folder and its missing ancestors. The path may be long; an empty one succeeds. Gives the Win32 error, 0
// when the folder exists.
[[nodiscard]] std::uint32_t TryCreateDirectories(const std::filesystem::path& folder);

// Raises std::filesystem::filesystem_error("create_directories", ...) when that fails.
void CreateDirectories(const std::filesystem::path& folder);

}  // namespace zo
