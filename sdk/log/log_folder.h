#pragma once

// Where the files of the diagnostic log are. A service's temporary folder may be open to every user, who could plant a
// link in the place of a folder or file of the log; nothing here goes through one.

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

    // For appending. Empty when the file cannot be opened, or is reached through a link.
    [[nodiscard]] zo::OwnedFile OpenFileOf(const ZopLogTime& time) const;

  private:
    [[nodiscard]] bool IsBelowTemporaryFolder() const noexcept { return !parent_.empty(); }

    std::wstring parent_;  // ZoProtector; empty for the current folder
    std::wstring folder_ = L".";
};

}  // namespace zop
