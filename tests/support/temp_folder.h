#pragma once

// Temporary folders that go away, and the variables of the process's environment, TMP above all.

#include <filesystem>
#include <string>

namespace zotest {

// Removes a folder and all below it, or a file. Links are removed as links and never followed; read-only files go too.
// Whatever cannot be removed stays, without a report.
void RemoveTree(const std::wstring& path);

// A new folder "zotest_..." below the system's temporary folder, removed at the end of its life.
class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path_; }
    // A path below the folder; nothing is made.
    [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// An environment variable of this process, until the end of its life.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const std::wstring& name, const std::wstring& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    std::wstring name_;
    std::wstring old_;
    bool wasSet_ = false;
};

// Makes GetTempPathW of this process answer another folder. TMP alone is set: it comes first.
struct ScopedTmp : ScopedEnvironment {
    explicit ScopedTmp(const std::wstring& folder) : ScopedEnvironment(L"TMP", folder) {}
};

// Whole files, bytes as they are. Writing makes missing parent folders; reading a file that cannot be read gives "".
void WriteFileBytes(const std::filesystem::path& path, const std::string& bytes);
[[nodiscard]] std::string ReadFileBytes(const std::filesystem::path& path);

}  // namespace zotest
