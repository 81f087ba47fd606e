// ZoProtector_UpgradeDriver: replaces the installed driver file by a newer one. The running driver keeps running;
// the new file is loaded when the service is next started. docs/upgrade.md says what is on disk after each failure.

#include <mutex>
#include <optional>

#include "copy_driver_file.h"
#include "driver_paths.h"
#include "file_id.h"
#include "file_version.h"
#include "locks.h"
#include "owned_handles.h"
#include "replace_file.h"
#include "service_errors.h"
#include "staging_file.h"
#include "zoprotector.h"

namespace zop {
namespace {

// The errors of a file that is in use or protected, which the driver can still replace.
bool IsLocked(DWORD error) {
    return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION || error == ERROR_USER_MAPPED_FILE;
}

std::int32_t MapFileError(DWORD error) {
    return IsLocked(error) ? ZOP_E_ACCESS_DENIED : ZopMapServiceError(error);
}

bool FileExists(const wchar_t* path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

// In the temporary folder when there is one and the name fits, else beside the installed file. The temporary folder
// may be on another volume; the rename then fails.
std::int32_t ChooseStagingPath(const ZopPathBuffer& installed, ZopPathBuffer& staging) {
    const std::uint64_t number = GetTickCount64();
    if (ZopReadTemporaryFolder(staging) && ZopAppendStagingName(staging, number, L".sys")) return ZOP_OK;
    staging = installed;
    staging.CutAfterLastSeparator();
    return ZopAppendStagingName(staging, number, L".old") ? ZOP_OK : kPathDoesNotFit;
}

DWORD MoveOver(const ZopPathBuffer& source, const ZopPathBuffer& target) {
    return MoveFileExW(source.Text(), target.Text(), MOVEFILE_REPLACE_EXISTING) ? ERROR_SUCCESS : GetLastError();
}

std::optional<zo::FileId> IdOf(const ZopPathBuffer& file) {
    return zo::FileIdOf(file.Text(), zo::LastLink::kDoNotFollow);
}

// While this is open, nobody can write to the file, delete it or put another in its place. Empty when somebody else has
// it open for that already.
zo::OwnedFile HoldInPlace(const ZopPathBuffer& file) {
    return zo::OwnedFile(CreateFileW(file.Text(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
}

// The staging file is not held just after the rename and just before it is moved back. No driver is better than one
// that somebody put there in between.
void DeleteUnlessSame(const ZopPathBuffer& file, const std::optional<zo::FileId>& id) {
    const std::optional<zo::FileId> now = IdOf(file);
    if (id && now && *now != *id) DeleteFileW(file.Text());
}

std::int32_t ReplaceByFileOperations(const wchar_t* newFile, const ZopPathBuffer& installed,
                                     const ZopPathBuffer& staging) {
    DWORD error = ZopCopyDriverFile(newFile, installed.Text());
    if (error == ERROR_SUCCESS) return ZOP_OK;
    if (!IsLocked(error)) return ZopMapServiceError(error);

    const std::optional<zo::FileId> old = IdOf(installed);
    // A running image cannot be written, but it can be renamed.
    error = MoveOver(installed, staging);
    if (error != ERROR_SUCCESS) return MapFileError(error);
    // The temporary folder may be open to others, and what lies there may become the driver again.
    zo::OwnedFile held = HoldInPlace(staging);
    ZopDeleteAtRestart(staging);

    error = ZopCopyDriverFile(newFile, installed.Text());
    if (error == ERROR_SUCCESS) return ZOP_OK;
    held.Reset();  // a held file cannot be renamed
    // The copy's error is what the caller has to know, whether or not the old file could be put back.
    if (MoveOver(staging, installed) == ERROR_SUCCESS) DeleteUnlessSame(installed, old);
    return MapFileError(error);
}

// Switches protection off while it lives, and sets it back on every way out.
class ProtectionPause {
  public:
    ProtectionPause() {
        uint32_t enabled = 0;
        // When the driver does not answer, protection counts as on.
        wasEnabled_ = ZoProtector_GetMasterEnabled(&enabled) < 0 || enabled != 0;
    }
    ~ProtectionPause() {
        if (status_ < 0) return;
        try {
            // The file is replaced or not by now: a switch that cannot be set back does not change that result.
            ZoProtector_SetMasterEnabled(wasEnabled_ ? 1 : 0);
        } catch (...) {
            // Out of memory for the log line; the switch itself was set before that.
        }
    }
    ProtectionPause(const ProtectionPause&) = delete;
    ProtectionPause& operator=(const ProtectionPause&) = delete;

    // Not in the constructor: only a complete object sets the switch back, and the log line can run out of memory after
    // the driver was switched.
    [[nodiscard]] std::int32_t Begin() { return status_ = ZoProtector_SetMasterEnabled(0); }

  private:
    bool wasEnabled_;
    std::int32_t status_ = ZOP_OK;
};

// One replacement at a time: the second of two at once would read the switch as the first has set it, and leave
// protection off.
zo::CriticalSection replacementLock;

std::int32_t ReplaceThroughDriver(const wchar_t* newFile, const ZopPathBuffer& installed) {
    const std::lock_guard guard(replacementLock);
    if (const std::int32_t status = ZoProtector_Initialize(); status < 0) return status;
    ProtectionPause pause;
    if (const std::int32_t status = pause.Begin(); status < 0) return status;
    return ZopReplaceFileByDriver(installed.Text(), newFile);
}

// An installed file without a readable version is older than any that has one.
std::int32_t IsNewer(const wchar_t* newFile, const ZopPathBuffer& installed, bool& isNewer) {
    ZopFileVersion installedVersion;
    ZopFileVersion newVersion;
    static_cast<void>(ZopReadFileVersion(installed.Text(), installedVersion));
    const std::int32_t status = ZopReadFileVersion(newFile, newVersion);
    isNewer = newVersion.Packed() > installedVersion.Packed();
    return status;
}

}  // namespace
}  // namespace zop

int32_t ZoProtector_UpgradeDriver(const wchar_t* newDriverPath, uint32_t* upgraded, uint32_t* replacedByDriver) {
    using namespace zop;
    if (upgraded != nullptr) *upgraded = 0;
    if (replacedByDriver != nullptr) *replacedByDriver = 0;
    if (newDriverPath == nullptr || *newDriverPath == L'\0') return ZOP_E_INVALID_ARG;
    if (!FileExists(newDriverPath)) return ZOP_E_DRIVER_NOT_FOUND;

    ZopPathBuffer installed;
    if (const int32_t status = ZopConfiguredImagePath(installed); status < 0) return status;
    if (!FileExists(installed.Text())) return ZOP_E_DRIVER_NOT_FOUND;

    bool isNewer = false;
    if (const int32_t status = IsNewer(newDriverPath, installed, isNewer); status < 0) return status;
    if (!isNewer) return ZOP_OK;

    ZopPathBuffer staging;
    if (const int32_t status = ChooseStagingPath(installed, staging); status < 0) return status;
    int32_t status = ReplaceByFileOperations(newDriverPath, installed, staging);
    const bool askDriver = status == ZOP_E_ACCESS_DENIED;
    if (askDriver) status = ReplaceThroughDriver(newDriverPath, installed);
    if (status < 0) return status;

    if (upgraded != nullptr) *upgraded = 1;
    if (replacedByDriver != nullptr && askDriver) *replacedByDriver = 1;
    return ZOP_OK;
}
