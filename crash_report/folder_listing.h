#pragma once

// The entries of a folder that is held open.

#include <cstdint>
#include <string>
#include <vector>

#include "held_folder.h"

namespace zocrash {

struct FolderEntry {
    std::wstring name;
    std::uint32_t attributes = 0;
};

// Appends all entries but "." and ".."; gives the Win32 error. Once for each time that the folder was opened.
[[nodiscard]] std::uint32_t ListFolder(const zo::HeldFolder& folder, std::vector<FolderEntry>& entries);

}  // namespace zocrash
