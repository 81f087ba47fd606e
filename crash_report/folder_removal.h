#pragma once

// Removal of a folder with all that is in it. Links of every kind are removed as links and never followed, which the
// standard library's remove_all does not promise on every platform: a link planted in a folder that a privileged
// process cleans would have its target emptied.

#include <cstdint>
#include <string>

namespace zocrash {

struct RemovalResult {
    std::uint32_t error = 0;    // Win32; 0 when nothing is left
    std::uint64_t removed = 0;  // entries, the folder itself included
};

// An absolute path. Nothing there is nothing to remove. Stops at the first entry that cannot be removed.
[[nodiscard]] RemovalResult RemoveFolder(const std::wstring& folder);

}  // namespace zocrash
