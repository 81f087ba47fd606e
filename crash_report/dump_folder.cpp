#include "dump_folder.h"

#include <windows.h>

#include <array>
#include <filesystem>

#include "errors.h"
#include "files.h"
#include "folder_removal.h"
#include "owned_handles.h"
#include "text.h"
#include "zoprotector.h"

namespace zocrash {

namespace {

std::wstring FolderFromRegistry() {
    zo::OwnedRegistryKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\CrashControl", 0, KEY_READ,
                      key.Out()) != ERROR_SUCCESS) {
        return {};
    }
    DWORD size = 0;
    if (RegQueryValueExW(key.Get(), L"MinidumpDir", nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) return {};
    // The block is zeroed, and one character longer than a value that may lack its terminator.
    const zo::HeapBlock value(size + sizeof(wchar_t));
    if (!value ||
        RegQueryValueExW(key.Get(), L"MinidumpDir", nullptr, nullptr, value.As<BYTE>(), &size) != ERROR_SUCCESS) {
        return {};
    }
    std::array<wchar_t, 520> expanded{};
    const auto capacity = static_cast<DWORD>(expanded.size());
    const DWORD length = ExpandEnvironmentStringsW(value.As<wchar_t>(), expanded.data(), capacity);
    if (length == 0 || length > capacity) return {};
    return expanded.data();
}

std::wstring FolderOfWindows() {
    std::array<wchar_t, MAX_PATH> windows{};
    const UINT length = GetWindowsDirectoryW(windows.data(), static_cast<UINT>(windows.size()));
    if (length == 0 || length >= windows.size()) return {};
    return (std::filesystem::path(windows.data()) / L"Minidump").wstring();
}

// Empty when there is no temporary folder.
std::wstring StagingFolder() {
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
    reporter.Log(ZOCRASH_LOG_ERROR, "Access denied to minidump dir and %TEMP% is unavailable; aborting");
    return zo::HresultFromWin32(ERROR_ACCESS_DENIED);
}

std::int32_t Stage(const CrashReporterContext& reporter, DumpFolder& folder) {
    const std::wstring staging = StagingFolder();
    // Somebody else may have put a link where ours is to be: nothing is cleaned or copied through it.
    if (staging.empty() || IsLink(std::filesystem::path(staging).parent_path())) return NowhereToStage(reporter);
    reporter.Log(ZOCRASH_LOG_WARNING, "Access denied to {}; staging via driver to {}", zo::Utf8FromWide(folder.path),
                 zo::Utf8FromWide(staging));
    // What an earlier run left behind and cannot be removed shows when the folder is made or copied to.
    static_cast<void>(RemoveFolder(staging));
    zo::CreateDirectories(staging);
    if (IsLink(staging)) return NowhereToStage(reporter);

    std::uint32_t files = 0;
    std::uint32_t dirs = 0;
    std::uint32_t skipped = 0;
    const std::int32_t status =
        ZoProtector_CopyDirectory(folder.path.c_str(), staging.c_str(), 1, 1, &files, &dirs, &skipped);
    if (status < 0) {
        reporter.Log(ZOCRASH_LOG_ERROR, "Driver-side copy failed: 0x{:08x} (files={}, dirs={}, skipped={})",
                     zo::Bits(status), files, dirs, skipped);
        // The copy's failure is what the run reports.
        static_cast<void>(RemoveFolder(staging));
        return status;
    }
    reporter.Log(ZOCRASH_LOG_INFO, "Staged minidumps: files={}, dirs={}, skipped={}; using {} for the rest of this run",
                 files, dirs, skipped, zo::Utf8FromWide(staging));
    folder = {staging, staging};
    return zo::kOk;
}

}  // namespace

std::wstring ResolveDumpFolder(const CrashReportSettings& settings) {
    if (!settings.minidumpDir.empty()) return settings.minidumpDir;
    if (std::wstring folder = FolderFromRegistry(); !folder.empty()) return folder;
    return FolderOfWindows();
}

std::int32_t OpenDumpFolder(const CrashReporterContext& reporter, DumpFolder& folder) {
    WIN32_FIND_DATAW found{};
    const zo::OwnedFind probe(FindFirstFileW((folder.path + L"\\*").c_str(), &found));
    if (probe) return zo::kOk;
    const DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED) return Stage(reporter, folder);
    if (error != ERROR_FILE_NOT_FOUND) {
        reporter.Log(ZOCRASH_LOG_WARNING, "Probe of {} failed (Win32={}); proceeding anyway",
                     zo::Utf8FromWide(folder.path), error);
    }
    return zo::kOk;
}

void RemoveStagedFolder(const CrashReporterContext& reporter, const std::wstring& staged) {
    const RemovalResult result = RemoveFolder(staged);
    if (result.error != 0) {
        reporter.Log(ZOCRASH_LOG_WARNING, "Failed to remove staged dir {}: {}", zo::Utf8FromWide(staged), result.error);
        return;
    }
    reporter.Log(ZOCRASH_LOG_INFO, "Removed staged dir {} (entries cleared: {})", zo::Utf8FromWide(staged),
                 result.removed);
}

}  // namespace zocrash
