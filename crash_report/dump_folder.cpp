#include "dump_folder.h"

#include <windows.h>

#include <array>
#include <filesystem>

#include "errors.h"
#include "owned_handles.h"
#include "text.h"

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

}  // namespace

std::wstring ResolveDumpFolder(const CrashReportSettings& settings) {
    if (!settings.minidumpDir.empty()) return settings.minidumpDir;
    if (std::wstring folder = FolderFromRegistry(); !folder.empty()) return folder;
    return FolderOfWindows();
}

std::int32_t OpenDumpFolder(const CrashReporterContext& reporter, std::wstring& folder, StagedFolder& staged) {
    WIN32_FIND_DATAW found{};
    const zo::OwnedFind probe(FindFirstFileW((folder + L"\\*").c_str(), &found));
    if (probe) return zo::kOk;
    const DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED) {
        const std::int32_t status = staged.CopyFrom(reporter, folder);
        if (status >= 0) folder = staged.Path();
        return status;
    }
    if (error != ERROR_FILE_NOT_FOUND) {
        reporter.Log(ZOCRASH_LOG_WARNING, "Probe of {} failed (Win32={}); proceeding anyway", zo::Utf8FromWide(folder),
                     error);
    }
    return zo::kOk;
}

}  // namespace zocrash
