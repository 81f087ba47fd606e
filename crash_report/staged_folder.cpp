#include "staged_folder.h"

#include <windows.h>

#include <array>
#include <filesystem>
#include <utility>

#include "errors.h"
#include "files.h"
#include "folder_removal.h"
#include "long_path.h"
#include "reporter_messages.h"
#include "text.h"
#include "zoprotector.h"

namespace zocrash {

namespace {

// Empty when there is no temporary folder.
std::wstring StagingPath() {
    std::array<wchar_t, MAX_PATH> temporary{};
    const DWORD length = GetTempPathW(static_cast<DWORD>(temporary.size()), temporary.data());
    if (length == 0 || length >= temporary.size()) return {};
    return (std::filesystem::path(temporary.data()) / L"ZoProtector" / L"Minidump").wstring();
}

bool IsLink(const std::filesystem::path& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

std::int32_t NowhereToStage(const CrashReporterContext& reporter) {
    reporter.Log(ZOCRASH_LOG_ERROR, kNowhereToStageMessage);
    return zo::HresultFromWin32(ERROR_ACCESS_DENIED);
}

}  // namespace

StagedFolder::~StagedFolder() {
    if (path_.empty()) return;
    held_.Release();
    try {
        static_cast<void>(RemoveFolder(path_));
    } catch (...) {
        // Out of memory on top of what ended the run; the next staging clears the folder.
    }
}

// False when either folder is a link or cannot be held.
bool StagedFolder::MakeEmpty(const std::wstring& staging) {
    const std::filesystem::path parent = std::filesystem::path(staging).parent_path();
    // When the folder above cannot be made, making the whole path fails and raises the error.
    if (zo::TryCreateDirectories(parent) == ERROR_SUCCESS &&
        parent_.Open(zo::LongForm(parent.c_str())) != ERROR_SUCCESS) {
        return false;
    }
    // What an earlier run left and cannot be removed shows when the driver copies.
    static_cast<void>(RemoveFolder(staging));
    zo::CreateDirectories(staging);
    return held_.Open(zo::LongForm(staging.c_str())) == ERROR_SUCCESS;
}

std::int32_t StagedFolder::CopyFrom(const CrashReporterContext& reporter, const std::wstring& source) {
    std::wstring staging = StagingPath();
    if (staging.empty() || IsLink(std::filesystem::path(staging).parent_path())) return NowhereToStage(reporter);
    reporter.Log(ZOCRASH_LOG_WARNING, "Access denied to {}; staging via driver to {}", zo::Utf8FromWide(source),
                 zo::Utf8FromWide(staging));
    if (!MakeEmpty(staging)) return NowhereToStage(reporter);
    path_ = std::move(staging);

    std::uint32_t files = 0;
    std::uint32_t dirs = 0;
    std::uint32_t skipped = 0;
    const std::int32_t status = ZoProtector_CopyDirectory(source.c_str(), path_.c_str(), 1, 1, &files, &dirs, &skipped);
    if (status < 0) {
        reporter.Log(ZOCRASH_LOG_ERROR, kCopyFailedMessage, zo::Bits(status), files, dirs, skipped);
        return status;
    }
    reporter.Log(ZOCRASH_LOG_INFO, "Staged minidumps: files={}, dirs={}, skipped={}; using {} for the rest of this run",
                 files, dirs, skipped, zo::Utf8FromWide(path_));
    return zo::kOk;
}

void StagedFolder::Remove(const CrashReporterContext& reporter) {
    held_.Release();
    const RemovalResult result = RemoveFolder(path_);
    const std::wstring path = std::exchange(path_, {});
    if (result.error != 0) {
        reporter.Log(ZOCRASH_LOG_WARNING, "Failed to remove staged dir {}: {}", zo::Utf8FromWide(path), result.error);
        return;
    }
    reporter.Log(ZOCRASH_LOG_INFO, "Removed staged dir {} (entries cleared: {})", zo::Utf8FromWide(path),
                 result.removed);
}

}  // namespace zocrash
