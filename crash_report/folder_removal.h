#pragma once

// Removal of a folder with all that is in it. Links of every kind are removed as links and never followed, which the
// standard library's remove_all does not promise on every platform: a link planted in a folder that a privileged
// process cleans would have its target emptied. (A Unix link in a folder under Wine cannot be removed by any call and
// stays, with ERROR_DIR_NOT_EMPTY as the error.)

#include <cstdint>
#include <string>

namespace zocrash {

struct RemovalResult {
    std::uint32_t error = 0;    // Win32; 0 when nothing is left
    std::uint64_t removed = 0;  // entries, the folder itself included
};

// An absolute path. Nothing there is nothing to remove. An entry that cannot be removed does not save the others; the
// first error is told.
[[nodiscard]] RemovalResult RemoveFolder(const std::wstring& folder);

}  // namespace zocrash
