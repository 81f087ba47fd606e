#include "staging_file.h"

#include <string>

namespace zop {

bool ZopAppendStagingName(ZopPathBuffer& folder, std::uint64_t number, std::wstring_view extension) {
    const std::wstring name = L"ZoProtectorDriver_" + std::to_wstring(number);
    return folder.Append(name) && folder.Append(extension);
}

bool ZopReadTemporaryFolder(ZopPathBuffer& folder) {
    const DWORD length = GetTempPathW(ZopPathBuffer::kUnits, folder.Data());
    return length > 0 && length < ZopPathBuffer::kUnits;
}

void ZopDeleteAtRestart(const ZopPathBuffer& file) {
    MoveFileExW(file.Text(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

}  // namespace zop
