#pragma once

// An empty file of a name of its own in the temporary folder, for others to write. It is deleted at the end.

#include <cstdint>
#include <string>

namespace zoctl {

class TemporaryFile {
  public:
    TemporaryFile() = default;
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Its name begins with the first three letters of the prefix. 0, or the Win32 error; to be called once.
    [[nodiscard]] std::uint32_t Create(const wchar_t* prefix);
    [[nodiscard]] const std::wstring& Path() const { return path_; }

  private:
    std::wstring path_;
};

}  // namespace zoctl
