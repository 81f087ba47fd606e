#include "staging_file.h"

#include <string>

namespace zop {

bool AppendStagingName(PathBuffer& folder, std::uint64_t number, std::wstring_view extension) {
    const std::wstring name = L"ZoProtectorDriver_" + std::to_wstring(number);
    const PathBuffer before = folder;
    if (folder.Append(name) && folder.Append(extension)) return true;
    folder = before;
    return false;
}

bool ReadTemporaryFolder(PathBuffer& folder) {
    const DWORD length = GetTempPathW(PathBuffer::kUnits, folder.Data());
    return length > 0 && length < PathBuffer::kUnits;
}

void DeleteAtRestart(const PathBuffer& file) {
    MoveFileExW(file.Text(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

}  // namespace zop
