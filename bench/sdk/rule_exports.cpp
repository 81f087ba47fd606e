#include "rule_exports.h"

#include <array>
#include <cstring>
#include <string>

#include "paired_run.h"
#include "zoprotector.h"

namespace zobench {

namespace {

constexpr std::uint32_t kCallsOfABatch = 25;
constexpr double kTarget = 1.05;

// One call of a batch: calls that need names or process ids of their own take them from here.
struct Call {
    std::wstring name;
    std::uint32_t pid;
};

// What the driver gets, made in place; gives the length.
union Record {
    ZopPathRecord path;
    ZopRuleRecord rule;
    ZopFileRuleRecord file;
    ZopRegistryKeyRecord key;
    ZopRegistryRuleRecord registry;
    ZopDllFolderRecord dll;
    ZopToggleRecord toggle;
    ZopPidRecord pid;
    ZopSignaturePolicy policy;
};
using MakeRecord = std::uint32_t (*)(const Call& call, Record& r);

std::uint32_t Nothing(const Call&, Record&) {
    return 0;
}
std::uint32_t Path(const Call& call, Record& r) {
    BareChannel::ConvertPath(call.name.c_str(), r.path.path);
    return sizeof r.path;
}
std::uint32_t FileRule(const Call& call, Record& r) {
    BareChannel::ConvertPath(call.name.c_str(), r.rule.path);
    return sizeof r.rule;
}
std::uint32_t FolderRule(const Call& call, Record& r) {
    r.rule.isFolder = r.rule.recursive = 1;
    return FileRule(call, r);
}
std::uint32_t ProtectedFile(const Call& call, Record& r) {
    BareChannel::ConvertPath(call.name.c_str(), r.file.path);
    return sizeof r.file;
}
std::uint32_t ProtectedFolder(const Call& call, Record& r) {
    r.file.isFolder = r.file.recursive = 1;
    std::memcpy(r.file.filter, L"*.exe", 10);
    return ProtectedFile(call, r);
}
std::uint32_t ScopedFolder(const Call& call, Record& r) {
    BareChannel::ConvertPath(L"C:\\Windows\\scope.exe", r.file.scopePath);
    r.file.exclusive = 1;
    return ProtectedFolder(call, r);
}
std::uint32_t MachineKeyRule(const Call& call, Record& r) {
    BareChannel::ConvertMachineKey(call.name.c_str(), r.registry.key);
    r.registry.recursive = 1;
    return sizeof r.registry;
}
std::uint32_t UserKeyRule(const Call& call, Record& r) {
    BareChannel::ConvertUserKey(call.name.c_str(), r.registry.key);
    r.registry.recursive = 1;
    return sizeof r.registry;
}
std::uint32_t MachineKey(const Call& call, Record& r) {
    BareChannel::ConvertMachineKey(call.name.c_str(), r.key.key);
    return sizeof r.key;
}
std::uint32_t DllFolder(const Call& call, Record& r) {
    BareChannel::ConvertPath(call.name.c_str(), r.dll.path);
    r.dll.recursive = 1;
    return sizeof r.dll;
}
std::uint32_t On(const Call&, Record& r) {
    r.toggle.state = 1;
    return sizeof r.toggle;
}
std::uint32_t Pid(const Call& call, Record& r) {
    r.pid.pid = call.pid;
    return sizeof r.pid;
}
std::uint32_t Policy(const Call&, Record& r) {
    r.policy = {1, 2, {}};
    return sizeof r.policy;
}

struct Request {
    std::uint32_t code;
    MakeRecord make;
};

struct Export {
    const char* name;
    std::int32_t (*library)(const Call& call);
    Request request;
    const char* logLine;  // after the export's name; with the call's name and a 1
    const wchar_t* names = L"";
    std::uint32_t clearCode = 0;    // sent before each batch; 0 for none
    Request before = {0, nullptr};  // sent for each call before each batch, so that there is something to remove
};

constexpr wchar_t kTool[] = L"C:\\Program Files\\Suite\\tool";
constexpr wchar_t kFolder[] = L"C:\\Program Files\\Suite\\folder";
constexpr wchar_t kMachineKey[] = L"HKLM\\SOFTWARE\\Suite\\key";
constexpr wchar_t kUserKey[] = L"HKCU\\SOFTWARE\\Suite\\key";
constexpr char kAdded[] = ": Added '%s'\r\n";
constexpr char kAddedFolder[] = ": Added '%s' (Recursive=%d)\r\n";
constexpr char kRemoved[] = ": Removed '%s'\r\n";
constexpr char kCleared[] = ": Cleared\r\n";
constexpr char kEnabled[] = ": Enabled\r\n";

constexpr Request kAddProcess = {ZOP_IOCTL_ADD_PROCESS_RULE, FileRule};
constexpr Request kAddFile = {ZOP_IOCTL_ADD_FILE_RULE, ProtectedFile};
constexpr Request kAddFileIgnore = {ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, FileRule};
constexpr Request kAddRegistry = {ZOP_IOCTL_ADD_REGISTRY_RULE, MachineKeyRule};
constexpr Request kAddRegistryIgnore = {ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, FileRule};
constexpr Request kAddDllFolder = {ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, DllFolder};
constexpr Request kAddOverride = {ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, Pid};

const Export kExports[] = {
    {"AddProcessProtectByPath", [](const Call& c) { return ZoProtector_AddProcessProtectByPath(c.name.c_str()); },
     kAddProcess, kAdded, kTool, ZOP_IOCTL_CLEAR_PROCESS_RULES},
    {"AddProcessProtectByFolder",
     [](const Call& c) { return ZoProtector_AddProcessProtectByFolder(c.name.c_str(), 1); },
     {ZOP_IOCTL_ADD_PROCESS_RULE, FolderRule},
     kAddedFolder,
     kFolder,
     ZOP_IOCTL_CLEAR_PROCESS_RULES},
    {"RemoveProcessProtect",
     [](const Call& c) { return ZoProtector_RemoveProcessProtect(c.name.c_str()); },
     {ZOP_IOCTL_REMOVE_PROCESS_RULE, Path},
     kRemoved,
     kTool,
     ZOP_IOCTL_CLEAR_PROCESS_RULES,
     kAddProcess},
    {"ClearAllProcessProtect",
     [](const Call&) { return ZoProtector_ClearAllProcessProtect(); },
     {ZOP_IOCTL_CLEAR_PROCESS_RULES, Nothing},
     kCleared},
    {"AddFileProtectByPath", [](const Call& c) { return ZoProtector_AddFileProtectByPath(c.name.c_str()); }, kAddFile,
     kAdded, kTool, ZOP_IOCTL_CLEAR_FILE_RULES},
    {"AddFileProtectByFolder",
     [](const Call& c) { return ZoProtector_AddFileProtectByFolder(c.name.c_str(), 1, L"*.exe"); },
     {ZOP_IOCTL_ADD_FILE_RULE, ProtectedFolder},
     ": Added '%s' Filter='*.exe'\r\n",
     kFolder,
     ZOP_IOCTL_CLEAR_FILE_RULES},
    {"AddFileProtectScoped",
     [](const Call& c) {
         return ZoProtector_AddFileProtectScoped(c.name.c_str(), 1, 1, L"*.exe", L"C:\\Windows\\scope.exe", 0, 0, 1);
     },
     {ZOP_IOCTL_ADD_FILE_RULE, ScopedFolder},
     ": '%s' Filter='*.exe' Scope='C:\\Windows\\scope.exe' Exclusive=%d\r\n",
     kFolder,
     ZOP_IOCTL_CLEAR_FILE_RULES},
    {"RemoveFileProtect",
     [](const Call& c) { return ZoProtector_RemoveFileProtect(c.name.c_str()); },
     {ZOP_IOCTL_REMOVE_FILE_RULE, Path},
     kRemoved,
     kTool,
     ZOP_IOCTL_CLEAR_FILE_RULES,
     kAddFile},
    {"ClearAllFileProtect",
     [](const Call&) { return ZoProtector_ClearAllFileProtect(); },
     {ZOP_IOCTL_CLEAR_FILE_RULES, Nothing},
     kCleared},
    {"EnableFileProtect",
     [](const Call&) { return ZoProtector_EnableFileProtect(1); },
     {ZOP_IOCTL_ENABLE_FILE_PROTECT, On},
     kEnabled},
    {"AddFileIgnoreProcess", [](const Call& c) { return ZoProtector_AddFileIgnoreProcess(c.name.c_str(), 0, 0); },
     kAddFileIgnore, ": Added '%s' (Folder=0, Recursive=%d)\r\n", kTool, ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES},
    {"RemoveFileIgnoreProcess",
     [](const Call& c) { return ZoProtector_RemoveFileIgnoreProcess(c.name.c_str()); },
     {ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS, Path},
     kRemoved,
     kTool,
     ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES,
     kAddFileIgnore},
    {"ClearAllFileIgnoreProcesses",
     [](const Call&) { return ZoProtector_ClearAllFileIgnoreProcesses(); },
     {ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, Nothing},
     kCleared},
    {"AddRegistryProtectByKey (HKLM)",
     [](const Call& c) { return ZoProtector_AddRegistryProtectByKey(c.name.c_str(), 1); }, kAddRegistry, kAddedFolder,
     kMachineKey, ZOP_IOCTL_CLEAR_REGISTRY_RULES},
    {"AddRegistryProtectByKey (HKCU)",
     [](const Call& c) { return ZoProtector_AddRegistryProtectByKey(c.name.c_str(), 1); },
     {ZOP_IOCTL_ADD_REGISTRY_RULE, UserKeyRule},
     kAddedFolder,
     kUserKey,
     ZOP_IOCTL_CLEAR_REGISTRY_RULES},
    {"RemoveRegistryProtect",
     [](const Call& c) { return ZoProtector_RemoveRegistryProtect(c.name.c_str()); },
     {ZOP_IOCTL_REMOVE_REGISTRY_RULE, MachineKey},
     kRemoved,
     kMachineKey,
     ZOP_IOCTL_CLEAR_REGISTRY_RULES,
     kAddRegistry},
    {"ClearAllRegistryProtect",
     [](const Call&) { return ZoProtector_ClearAllRegistryProtect(); },
     {ZOP_IOCTL_CLEAR_REGISTRY_RULES, Nothing},
     kCleared},
    {"AddRegistryIgnoreProcess",
     [](const Call& c) { return ZoProtector_AddRegistryIgnoreProcess(c.name.c_str(), 0, 0); }, kAddRegistryIgnore,
     ": Added '%s' (Folder=0, Recursive=%d)\r\n", kTool, ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES},
    {"RemoveRegistryIgnoreProcess",
     [](const Call& c) { return ZoProtector_RemoveRegistryIgnoreProcess(c.name.c_str()); },
     {ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS, Path},
     kRemoved,
     kTool,
     ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES,
     kAddRegistryIgnore},
    {"ClearAllRegistryIgnoreProcesses",
     [](const Call&) { return ZoProtector_ClearAllRegistryIgnoreProcesses(); },
     {ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES, Nothing},
     kCleared},
    {"SetSignaturePolicy",
     [](const Call&) {
         const ZopSignaturePolicy policy = {1, 2, {}};
         return ZoProtector_SetSignaturePolicy(&policy);
     },
     {ZOP_IOCTL_SET_SIGNATURE_POLICY, Policy},
     ": Mode=1%s MinLevel=%d\r\n"},
    {"AddSignatureOverride", [](const Call& c) { return ZoProtector_AddSignatureOverride(c.pid); }, kAddOverride,
     ": PID=100\r\n", L"", ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES},
    {"RemoveSignatureOverride",
     [](const Call& c) { return ZoProtector_RemoveSignatureOverride(c.pid); },
     {ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, Pid},
     ": PID=100\r\n",
     L"",
     ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES,
     kAddOverride},
    {"ClearAllSignatureOverrides",
     [](const Call&) { return ZoProtector_ClearAllSignatureOverrides(); },
     {ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES, Nothing},
     "\r\n"},
    {"EnableDllLoadFilter",
     [](const Call&) { return ZoProtector_EnableDllLoadFilter(1); },
     {ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, On},
     kEnabled},
    {"AddDllWhitelistFolder", [](const Call& c) { return ZoProtector_AddDllWhitelistFolder(c.name.c_str(), 1); },
     kAddDllFolder, kAddedFolder, kFolder, ZOP_IOCTL_CLEAR_DLL_WHITELIST},
    {"RemoveDllWhitelistFolder",
     [](const Call& c) { return ZoProtector_RemoveDllWhitelistFolder(c.name.c_str()); },
     {ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER, Path},
     kRemoved,
     kFolder,
     ZOP_IOCTL_CLEAR_DLL_WHITELIST,
     kAddDllFolder},
    {"ClearAllDllWhitelist",
     [](const Call&) { return ZoProtector_ClearAllDllWhitelist(); },
     {ZOP_IOCTL_CLEAR_DLL_WHITELIST, Nothing},
     kCleared},
};

Times CompareExport(const BareChannel& bare, const Export& row) {
    std::array<Call, kCallsOfABatch> calls;
    for (std::uint32_t i = 0; i < kCallsOfABatch; ++i)
        calls[i] = {row.names + std::to_wstring(i), 100 + 4 * i};
    const std::string logLine = std::string(row.name).substr(0, std::string(row.name).find(' ')) + row.logLine;

    const auto batch = [&](const auto& send) {
        if (row.clearCode != 0) Must(bare.Send(row.clearCode, nullptr, 0));
        for (const Call& call : calls) {
            if (row.before.make == nullptr) break;
            Record record{};
            const std::uint32_t size = row.before.make(call, record);
            Must(bare.Send(row.before.code, &record, size));
        }
        return Seconds([&] {
            for (const Call& call : calls)
                send(call);
        });
    };
    return Compare(
        [&] { return batch([&](const Call& call) { Must(row.library(call) == ZOP_OK); }); },
        [&] {
            return batch([&](const Call& call) {
                Record record{};
                const std::uint32_t size = row.request.make(call, record);
                Must(bare.SendAndLog(row.request.code, &record, size, logLine.c_str(), call.name.c_str(), 1));
            });
        });
}

}  // namespace

void CompareRuleExports(const BareChannel& bare) {
    std::printf("Rule exports, against a bare request after the same conversion, log write and debugger output\n");
    std::printf("  target: at most %.2f; %d pairs of %u calls\n\n", kTarget, pairsOfARun, kCallsOfABatch);
    std::printf("  %-32s %12s %12s %8s\n", "export", "library us", "bare us", "ratio");
    for (const Export& row : kExports) {
        const Times t = CompareExport(bare, row);
        std::printf("  %-32s %12.1f %12.1f %8.3f%s\n", row.name, t.library / kCallsOfABatch * 1e6,
                    t.bare / kCallsOfABatch * 1e6, t.ratio, Verdict(t.ratio <= kTarget));
    }
}

}  // namespace zobench
