#pragma once

// Removal of a folder with everything in it. Links of every kind are removed as links and never followed: a link that
// somebody plants in a folder which a privileged process cleans would have its target emptied. Each folder is therefore
// held while it is emptied, so that it cannot be swapped for a link half-way; std::filesystem::remove_all promises none
// of this. (Under Wine no call removes a Unix link to a folder: it stays, and the error is ERROR_DIR_NOT_EMPTY.)

#include <cstdint>
#include <string>

namespace zocrash {

struct RemovalResult {
    std::uint32_t error = 0;    // Win32; 0 when nothing is left
    std::uint64_t removed = 0;  // entries, the folder itself included
};

// An absolute path, with nothing to remove when nothing is there. After an entry that cannot be removed the others
// still go; the first error is reported.
[[nodiscard]] RemovalResult RemoveFolder(const std::wstring& folder);

}  // namespace zocrash
