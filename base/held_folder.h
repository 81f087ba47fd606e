#pragma once

// A folder that is held open. While it is, nobody can rename or remove it or put a link in its place, so that a path
// below it leads where it led when the folder was opened.

#include <cstdint>
#include <string>

#include "owned_handles.h"

namespace zo {

// Whether the open file is a link itself. Wine opens the target of a link even with FILE_FLAG_OPEN_REPARSE_POINT, and
// shows links to folders by their path only: ask both.
[[nodiscard]] bool IsLink(HANDLE openedWithoutFollowing, const std::wstring& path);

// ERROR_REPARSE_POINT_ENCOUNTERED, which the headers of mingw-w64 lack.
inline constexpr std::uint32_t kErrorIsALink = 4395;

class HeldFolder {
  public:
    // Gives the Win32 error, 0 when the folder is held. A link is not followed (kErrorIsALink), a file
    // is refused (ERROR_DIRECTORY).
    [[nodiscard]] std::uint32_t Open(const std::wstring& path);

    explicit operator bool() const noexcept { return static_cast<bool>(folder_); }

    // Open for listing.
    [[nodiscard]] HANDLE Get() const noexcept { return folder_.Get(); }

    void Release() noexcept { folder_.Reset(); }

  private:
    OwnedFile folder_;
};

}  // namespace zo
