#include "crash_facts.h"

#include <windows.h>

#include <array>
#include <filesystem>

#include "console.h"
#include "crash_files.h"
#include "owned_handles.h"
#include "server_probe.h"
#include "text.h"

namespace zoctl {

namespace {

constexpr unsigned kServerLimitMs = 10'000;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The reporter takes each library from its program's folder, else from the system's, and from nowhere else.
std::string MissingLibrary() {
    std::array<wchar_t, MAX_PATH> program{};
    std::array<wchar_t, MAX_PATH> system{};
    GetModuleFileNameW(nullptr, program.data(), MAX_PATH);
    GetSystemDirectoryW(system.data(), MAX_PATH);
    const auto isIn = [](const std::filesystem::path& folder, const wchar_t* name) {
        return GetFileAttributesW((folder / name).c_str()) != INVALID_FILE_ATTRIBUTES;
    };
    for (const wchar_t* name : {L"dbghelp.dll", L"dbgeng.dll"}) {
        if (!isIn(std::filesystem::path(program.data()).parent_path(), name) && !isIn(system.data(), name)) {
            return zo::Utf8FromWide(name);
        }
    }
    return {};
}

// As the reporter finds it, which expands variables in a value of any type.
std::wstring DumpFolder() {
    std::array<wchar_t, 520> named{};
    std::array<wchar_t, 520> folder{};
    auto size = static_cast<DWORD>(sizeof(named));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\CrashControl", L"MinidumpDir",
                     RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, named.data(),
                     &size) == ERROR_SUCCESS &&
        named[0] != L'\0') {
        const auto capacity = static_cast<DWORD>(folder.size());
        const DWORD length = ExpandEnvironmentStringsW(named.data(), folder.data(), capacity);
        if (length <= capacity && folder[0] != L'\0') return folder.data();
    }
    GetWindowsDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return (std::filesystem::path(folder.data()) / L"Minidump").wstring();
}

DWORD ListingError(const std::wstring& folder) {
    WIN32_FIND_DATAW found{};
    const zo::OwnedFind listing(FindFirstFileW((folder + L"\\*").c_str(), &found));
    return listing ? 0 : GetLastError();
}

DWORD OpenError(const std::filesystem::path& path, DWORD access, DWORD flags) {
    const zo::OwnedFile file(CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
    return file ? 0 : GetLastError();
}

// An existing file is opened for writing; where there is none, the nearest folder must let one be made.
CrashFile TryWriting(const std::filesystem::path& path) {
    CrashFile file{zo::Utf8FromWide(path.wstring()), 0};
    if (path.empty()) return file;
    file.error = OpenError(path, FILE_APPEND_DATA, FILE_ATTRIBUTE_NORMAL);
    DWORD access = FILE_ADD_FILE;
    for (std::filesystem::path folder = path.parent_path();
         file.error == ERROR_FILE_NOT_FOUND || file.error == ERROR_PATH_NOT_FOUND; folder = folder.parent_path()) {
        file.error = OpenError(folder, access, FILE_FLAG_BACKUP_SEMANTICS);
        access = FILE_ADD_SUBDIRECTORY;
        if (folder == folder.parent_path()) break;
    }
    return file;
}

}  // namespace

CrashFacts GatherCrashFacts(bool online) {
    CrashFacts facts;
    facts.missingLibrary = MissingLibrary();
    const std::wstring folder = DumpFolder();
    facts.dumpFolder = zo::Utf8FromWide(folder);
    facts.dumpFolderError = ListingError(folder);
    const std::filesystem::path record = CrashRecordPath();
    facts.record = TryWriting(record);
    facts.journal = TryWriting(CrashJournalPath(record));
    facts.server = ZO_CRASH_SERVER_URL;
    if (online) {
        const Cancellation cancellation;
        facts.serverError = ProbeServer(facts.server, kServerLimitMs, cancellation);
        if (*facts.serverError) facts.serverErrorText = ServerErrorText(*facts.serverError);
    }
    return facts;
}

}  // namespace zoctl
