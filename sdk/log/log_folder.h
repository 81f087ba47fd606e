#pragma once

// Where the files of the diagnostic log are. A service's temporary folder may be open to every user, who could plant a
// link in the place of a folder or file of the log; nothing here goes through one.

#include <cstdint>
#include <string>

#include "log_line.h"
#include "owned_handles.h"

namespace zop {

class ZopLogFolder {
  public:
    // ZoProtector\Logs below the temporary folder, or the current folder where there is none. Makes it where it is
    // missing; when that fails, so does opening a file.
    void Find();

    [[nodiscard]] std::wstring PathOfFile(const ZopLogTime& time) const;

    // Those that were last written more than seven days ago. Nothing in the current folder is deleted.
    void DeleteOldFiles() const;

    // For appending. Gives the Win32 error, 0 when the file is open; zo::kErrorIsALink when it is reached through a
    // link or has another name.
    [[nodiscard]] std::uint32_t OpenFileOf(const ZopLogTime& time, zo::OwnedFile& file) const;

  private:
    [[nodiscard]] bool IsBelowTemporaryFolder() const noexcept { return !parent_.empty(); }

    std::wstring parent_;  // ZoProtector; empty for the current folder
    std::wstring folder_ = L".";
};

}  // namespace zop
