#include "doctor_facts.h"

// clang-format off
#include <windows.h>
#include <winternl.h>
// clang-format on

#include "diagnostic_log.h"
#include "driver_signature.h"
#include "format.h"
#include "image_path.h"
#include "library_settings.h"
#include "owned_handles.h"
#include "service_names.h"
#include "service_registry.h"
#include "system_call.h"
#include "table_entries.h"
#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

constexpr wchar_t kDevicePath[] = L"\\\\.\\ZoProtector";

// The flag in the registry is how the service manager remembers over a restart; where it keeps it only in memory, a
// change that changes nothing is refused.
bool MarkedForDeletion() {
    DWORD flag = 0;
    DWORD size = sizeof(flag);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, zop::kServiceKey, L"DeleteFlag", RRF_RT_REG_DWORD, nullptr, &flag, &size) ==
            ERROR_SUCCESS &&
        flag != 0) {
        return true;
    }
    const zo::OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const zo::OwnedService service(manager ? OpenServiceW(manager.Get(), zop::kServiceName, SERVICE_CHANGE_CONFIG)
                                           : nullptr);
    return service &&
           !ChangeServiceConfigW(service.Get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, nullptr,
                                 nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) &&
           GetLastError() == ERROR_SERVICE_MARKED_FOR_DELETE;
}

void AskService(DoctorFacts& facts) {
    ZoProtectorDriverStatus status{};
    facts.queryStatus = ZoProtector_QueryDriverStatus(&status);
    if (facts.queryStatus < 0) return;
    facts.state = status.state;
    facts.startType = status.startType;
    facts.imagePath = zo::Utf8FromWide(status.imagePath);
    facts.instanceRegistered = status.instanceRegistered != 0;
    facts.altitude = zo::Utf8FromWide(status.altitude);
    facts.fileVersion = {status.fileVersionMajor, status.fileVersionMinor, status.fileVersionBuild,
                         status.fileVersionRevision};
    const std::wstring file = zop::ZopResolveImagePath(status.imagePath);
    const DWORD attributes = GetFileAttributesW(file.c_str());
    facts.fileThere = attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
    if (facts.fileThere) facts.signature = ReadDriverSignature(file);
    if (!facts.instanceRegistered) {
        facts.altitude = AltitudeUnderParameters();
        facts.instanceRegistered = facts.underParameters = !facts.altitude.empty();
    }
    if (status.state != ZOP_DRIVER_NOT_INSTALLED) facts.markedForDeletion = MarkedForDeletion();
}

std::string ProcessName(ULONG_PTR pid) {
    const zo::OwnedKernelObject process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid)));
    wchar_t path[MAX_PATH] = {};
    DWORD units = MAX_PATH;
    if (!process || !QueryFullProcessImageNameW(process.Get(), 0, path, &units)) return zo::Format("process {}", pid);
    return zo::Format("process {} ({})", pid, zo::Utf8FromWide(path));
}

// The system's list of the processes that use a file. Not every system answers it for a device; then nothing is known.
std::vector<std::string> DeviceHolders() {
    struct ProcessIds {
        ULONG count;
        ULONG_PTR ids[256];
    };
    using Query = NTSTATUS(NTAPI*)(HANDLE, IO_STATUS_BLOCK*, void*, ULONG, ULONG);
    constexpr ULONG kProcessIdsUsingFile = 47;
    const auto query = SystemCall<Query>(L"ntdll.dll", "NtQueryInformationFile");
    const zo::OwnedFile device(CreateFileW(kDevicePath, FILE_READ_ATTRIBUTES,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
    std::vector<std::string> holders;
    ProcessIds ids{};
    IO_STATUS_BLOCK block{};
    if (!query || !device || query(device.Get(), &block, &ids, sizeof(ids), kProcessIdsUsingFile) < 0) return holders;
    for (ULONG i = 0; i < ids.count && i < std::size(ids.ids); ++i) {
        if (ids.ids[i] != GetCurrentProcessId()) holders.push_back(ProcessName(ids.ids[i]));
    }
    return holders;
}

bool IsAdministrator() {
    std::array<std::uint8_t, SECURITY_MAX_SID_SIZE> group{};
    DWORD size = static_cast<DWORD>(group.size());
    BOOL member = FALSE;
    return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, group.data(), &size) &&
           CheckTokenMembership(nullptr, group.data(), &member) && member;
}

// Opens it as the library does, but returns the error.
void TryDevice(DoctorFacts& facts) {
    const zo::OwnedFile device(CreateFileW(kDevicePath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                           FILE_ATTRIBUTE_NORMAL, nullptr));
    facts.deviceError = device ? 0 : GetLastError();
    if (device) return;
    facts.holders = DeviceHolders();
    facts.administrator = IsAdministrator();
}

// A poll from the beginning takes nothing away from other readers: each keeps a position of its own.
template <typename Record>
std::int32_t LostSoFar(std::int32_t (*drain)(std::uint32_t, void*, std::uint32_t, std::uint32_t*, std::uint32_t*,
                                             std::uint32_t*),
                       std::uint32_t& lost) {
    Record record{};
    std::uint32_t count = 0;
    return drain(0, &record, 1, &count, &lost, nullptr);
}

void AskDriver(DoctorFacts& facts) {
    facts.handshake = ZoProtector_Initialize();
    if (*facts.handshake < 0) return;
    auto& version = facts.driverVersion;
    // It answered a moment ago; if it no longer does, the next calls say so.
    static_cast<void>(ZoProtector_GetVersion(&version[0], &version[1], &version[2]));
    std::uint32_t enabled = 0;
    facts.masterStatus = ZoProtector_GetMasterEnabled(&enabled);
    facts.masterEnabled = enabled != 0;
    for (const Table table : kAllTables) {
        TableEntries entries;
        const std::int32_t status = ReadEntries(table, entries);
        if (status < 0) facts.rulesStatus = status;
        facts.rules[Index(table)] = entries.total;
    }
    ZopStats stats{};
    facts.statsStatus = ZoProtector_GetStats(&stats);
    facts.statsVersion = stats.version;
    facts.bypassAttempts = stats.unsignedBypassAttempts;
    facts.ringStatus = LostSoFar<ZopEventRecord>(ZoProtector_DrainEvents, facts.lostMain);
    if (facts.ringStatus >= 0) {
        facts.ringStatus = LostSoFar<ZopRegistryEventRecord>(ZoProtector_DrainRegistryEvents, facts.lostRegistry);
    }
    ZoProtector_Uninitialize();
}

// Before the library logs for the first time in this process, for it keeps its file open and to itself.
void TryLog(DoctorFacts& facts) {
    const zop::ZopLogTrial trial = zop::ZopTryLog();
    facts.logFile = zo::Utf8FromWide(trial.path);
    facts.logError = trial.error;
}

}  // namespace

DoctorFacts GatherDoctorFacts() {
    DoctorFacts facts;
    TryLog(facts);
    facts.developmentSettings = DevelopmentSettings();
    AskService(facts);
    // The device also answers when the service manager has lost sight of the driver (one marked for deletion runs on).
    if (facts.state != ZOP_DRIVER_NOT_INSTALLED && facts.state != ZOP_DRIVER_STOPPED) {
        TryDevice(facts);
        if (*facts.deviceError == 0) AskDriver(facts);
    }
    return facts;
}

}  // namespace zoctl
