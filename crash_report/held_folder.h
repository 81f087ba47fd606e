#pragma once

// A folder that is held open. While it is, nobody can rename or remove it or put a link in its place, so that paths
// below it lead where they led when it was opened.

#include <cstdint>
#include <string>
#include <vector>

#include "owned_handles.h"

namespace zocrash {

// ERROR_STOPPED_ON_SYMLINK, which mingw-w64 does not declare.
inline constexpr std::uint32_t kStoppedOnLink = 681;

struct FolderEntry {
    std::wstring name;
    std::uint32_t attributes = 0;
};

class HeldFolder {
  public:
    // Gives the Win32 error, 0 when the folder is held. A link is not followed (kStoppedOnLink), a file
    // is refused (ERROR_DIRECTORY).
    [[nodiscard]] std::uint32_t Open(const std::wstring& path);

    // Appends all entries but "." and ".."; gives the Win32 error. Once for each time that the folder was opened.
    [[nodiscard]] std::uint32_t List(std::vector<FolderEntry>& entries) const;

    explicit operator bool() const noexcept { return static_cast<bool>(folder_); }
    void Release() noexcept { folder_.Reset(); }

  private:
    zo::OwnedFile folder_;
};

}  // namespace zocrash
