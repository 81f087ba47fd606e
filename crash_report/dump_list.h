#pragma once

// Which dump files are to be reported.

#include <cstdint>
#include <string>
#include <vector>

namespace zocrash {

struct DumpEntry {
    std::wstring path;
    std::uint64_t lastWrite = 0;  // FILETIME as one number
};

using DumpList = std::vector<DumpEntry>;  // oldest first

// The files in the folder, not below it, that are no larger than sizeLimit and were written after `stored`. A folder
// that cannot be opened has none. A listing that breaks off raises std::filesystem::filesystem_error.
[[nodiscard]] DumpList FindNewDumps(const std::wstring& folder, std::uint64_t stored, std::uint64_t sizeLimit);

// One file whatever its size. Gives 0x80070002 when it does not exist and the Win32 error's status when its time
// cannot be read.
[[nodiscard]] std::int32_t TakeSingleDump(const std::wstring& path, DumpList& list);

}  // namespace zocrash
