#pragma once

// Temporary folders that go away, whole files, and the variables of the process's environment, TMP above all.

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "files.h"
#include "format.h"
#include "owned_handles.h"

namespace zotest {

// Removes a folder and all below it, or a file. Links are removed as links and never followed; read-only files go too.
// Whatever cannot be removed stays, without a report.
inline void RemoveTree(const std::wstring& path) {
    // Paths over 260 characters need the prefix.
    const std::wstring full = path.starts_with(L"\\\\?\\") ? path : L"\\\\?\\" + path;
    const DWORD attributes = GetFileAttributesW(full.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return;
    if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        WIN32_FIND_DATAW found{};
        const zo::OwnedFind find(FindFirstFileW((full + L"\\*").c_str(), &found));
        for (bool more = static_cast<bool>(find); more; more = FindNextFileW(find.Get(), &found) != FALSE) {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..") RemoveTree(full + L"\\" + name);
        }
    }
    // A Unix link to a folder shows as a folder but is removed as a file.
    if (!isFolder || !RemoveDirectoryW(full.c_str())) DeleteFileW(full.c_str());
}

// A new folder "zotest_..." below the system's temporary folder, removed at the end of its life.
class TempFolder {
  public:
    TempFolder() {
        static std::atomic<unsigned> number{0};
        wchar_t base[MAX_PATH + 1]{};
        GetTempPathW(MAX_PATH + 1, base);
        path_ = base;
        path_ /= zo::Format("zotest_{}_{}_{}", GetCurrentProcessId(), GetTickCount64(), ++number);
        zo::CreateDirectories(path_);
    }
    ~TempFolder() { RemoveTree(path_.wstring()); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path_; }
    // A path below the folder; nothing is made.
    [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// Raises std::runtime_error when there is no such environment variable.
[[nodiscard]] inline std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr) throw std::runtime_error(std::string("there is no environment variable ") + name);
    return value;
}

// An environment variable of this process, until the end of its life.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const std::wstring& name, const std::wstring& value) : name_(name) {
        wchar_t old[32768];  // the longest that there is
        if (GetEnvironmentVariableW(name.c_str(), old, 32768) != 0) old_ = old;
        SetEnvironmentVariableW(name.c_str(), value.c_str());
    }
    ~ScopedEnvironment() { SetEnvironmentVariableW(name_.c_str(), old_ ? old_->c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    std::wstring name_;
    std::optional<std::wstring> old_;
};

// Makes GetTempPathW of this process answer another folder. TMP alone is set: it comes first.
struct ScopedTmp : ScopedEnvironment {
    explicit ScopedTmp(const std::wstring& folder) : ScopedEnvironment(L"TMP", folder) {}
};

// Whole files, bytes as they are. Writing makes missing parent folders; reading a file that cannot be read gives "".
inline void WriteFileBytes(const std::filesystem::path& path, const std::string& bytes) {
    zo::CreateDirectories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file) throw std::runtime_error("cannot write " + path.string());
}
[[nodiscard]] inline std::string ReadFileBytes(const std::filesystem::path& path) {
    std::string bytes;
    return zo::ReadWholeFile(path.c_str(), bytes) ? bytes : "";
}

// A file held open for reading; others can do only what `share` allows them.
[[nodiscard]] inline zo::OwnedFile Hold(const std::filesystem::path& file, DWORD share) {
    zo::OwnedFile handle(CreateFileW(file.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!handle) throw std::runtime_error("cannot open " + file.string());
    return handle;
}

}  // namespace zotest
