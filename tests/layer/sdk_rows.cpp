#include "layer_rows.h"
#include "temp_folder.h"

namespace layertest {
namespace {

using zoprotector::Depth;

constexpr std::uint32_t kPid = 0x01020304;
const ZopSignaturePolicy kPolicy = {2, 200, {}};

void AddTwoOfEach() {
    for (const wchar_t* path : {L"C:\\one", L"C:\\two"}) {
        ZoProtector_AddProcessProtectByPath(path);
        ZoProtector_AddFileProtectByFolder(path, 1, L"*.exe");
        ZoProtector_AddDllWhitelistFolder(path, 1);
        ZoProtector_AddFileIgnoreProcess(path, 0, 0);
        ZoProtector_AddRegistryIgnoreProcess(path, 0, 0);
    }
    ZoProtector_AddRegistryProtectByKey(L"HKLM\\one", 1);
    ZoProtector_AddSignatureOverride(kPid);
    ZoProtector_SetSignaturePolicy(&kPolicy);
    simulator->SetPidSignature({kPid, 1, 0, 0, 1, 0});
    simulator->SetStatusReply({1, 2, 3, 4}, {5, 6, 7, 8});
}

std::filesystem::path Source() {
    return std::filesystem::path(folder) / "tree";
}
std::filesystem::path Copy() {
    return std::filesystem::path(folder) / "copy";
}

template <typename Entry>
std::int32_t ListThroughC(ZoProtector_ListFileProtectRulesFn list, Output& output) {
    Entry entries[8];
    std::uint32_t count = 0;
    std::uint32_t total = 0;
    const std::int32_t status = list(entries, 8, &count, &total);
    for (std::uint32_t i = 0; i < count; ++i)
        output.AddRecord(entries[i]);
    return status;
}
template <typename Entries>
void AddAll(Output& output, const Entries& entries) {
    for (const auto& entry : entries)
        output.AddRecord(entry);
}

// More than the rings hold, so that some are lost.
void Overflow() {
    simulator->InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 5);
    simulator->InjectEvents(ZOSIM_RING_REGISTRY, ZOP_REGISTRY_EVENT_RING_SIZE + 7);
}
// All but the time, which the simulator takes from the clock.
template <typename Record>
void AddEvent(Output& output, const Record& record) {
    output.AddBytes(record.bytes, 8);
    output.AddBytes(record.bytes + 16, sizeof record - 16);
}
template <typename Record>
std::int32_t DrainThroughC(ZoProtector_DrainEventsFn drain, Output& output) {
    Record records[2];
    std::uint32_t count = 0;
    std::uint32_t lost = 0;
    std::uint32_t next = 0;
    const std::int32_t status = drain(0, records, 2, &count, &lost, &next);
    if (lost != 0) output.Add(lost);
    for (std::uint32_t i = 0; i < count; ++i)
        AddEvent(output, records[i]);
    return status;
}

#define ZO_LIST_ROW(table, Entry)                                                                                   \
    Row {                                                                                                           \
        "ZoProtector_List" #table "Rules",                                                                          \
            [](Output& output) { return ListThroughC<Entry>(&ZoProtector_List##table##Rules, output); },            \
            [](Output& output, ErrorTo error) { AddAll(output, session->List##table##Rules(error)); }, AddTwoOfEach \
    }
#define ZO_DRAIN_ROW(Reader, Record, drain)                                                                        \
    Row {                                                                                                          \
        "ZoProtector_" #drain, [](Output& output) { return DrainThroughC<Record>(&ZoProtector_##drain, output); }, \
            [](Output& output, ErrorTo error) {                                                                    \
                const auto onLost = [&](std::uint32_t lost) { output.Add(lost); };                                 \
                zoprotector::Reader reader(*session, onLost, 2);                                                   \
                for (const auto& event : reader.Poll(error))                                                       \
                    AddEvent(output, event);                                                                       \
            },                                                                                                     \
            Overflow                                                                                               \
    }
#define ZO_VERDICT_ROW(name)                                                              \
    Row {                                                                                 \
        "ZoProtector_" #name,                                                             \
            [](Output& output) {                                                          \
                std::uint32_t first = 0;                                                  \
                std::uint32_t second = 0;                                                 \
                const std::int32_t status = ZoProtector_##name(kPid, &first, &second);    \
                output.Add(first, second);                                                \
                return status;                                                            \
            },                                                                            \
            [](Output& output, ErrorTo error) {                                           \
                const zoprotector::SignatureVerdict verdict = session->name(kPid, error); \
                output.Add(int{verdict.first}, int{verdict.second});                      \
            },                                                                            \
            AddTwoOfEach                                                                  \
    }
#define ZO_RECORD_ROW(Record, name)                                                                     \
    Row {                                                                                               \
        "ZoProtector_" #name,                                                                           \
            [](Output& output) {                                                                        \
                Record record{};                                                                        \
                const std::int32_t status = ZoProtector_##name(&record);                                \
                output.AddRecord(record);                                                               \
                return status;                                                                          \
            },                                                                                          \
            [](Output& output, ErrorTo error) { output.AddRecord(session->name(error)); }, AddTwoOfEach \
    }
#define ZO_RULE_ROW(name, arguments, ...)                                           \
    Row {                                                                           \
        "ZoProtector_" #name, [](Output&) { return ZoProtector_##name arguments; }, \
            [](Output&, ErrorTo error) { session->__VA_ARGS__; }, AddTwoOfEach      \
    }

}  // namespace

const std::vector<Row>& ChannelRows() {
    static const std::vector<Row> rows = {
        {"ZoProtector_GetVersion",
         [](Output& output) {
             std::uint32_t version[3] = {};
             const std::int32_t status = ZoProtector_GetVersion(version, version + 1, version + 2);
             output.Add(version[0], version[1], version[2]);
             return status;
         },
         [](Output& output, ErrorTo error) {
             const zoprotector::Version version = session->GetVersion(error);
             output.Add(version.major, version.minor, version.patch);
         },
         [] { simulator->SetVersion(1, 2, 3); }},
        ZO_RECORD_ROW(ZopStatus, GetStatus),
        ZO_RULE_ROW(SetMasterEnabled, (0), SetMasterEnabled(false, error)),
        {"ZoProtector_GetMasterEnabled",
         [](Output& output) {
             std::uint32_t enabled = 0;
             const std::int32_t status = ZoProtector_GetMasterEnabled(&enabled);
             output.Add(enabled);
             return status;
         },
         [](Output& output, ErrorTo error) { output.Add(int{session->GetMasterEnabled(error)}); }},
        ZO_RULE_ROW(ForceCrash, (), ForceCrash(error)),

        ZO_RULE_ROW(AddProcessProtectByPath, (L"C:\\a"), AddProcessProtectByPath(L"C:\\a", error)),
        ZO_RULE_ROW(AddProcessProtectByFolder, (L"C:\\a", 1),
                    AddProcessProtectByFolder(std::wstring(L"C:\\a"), Depth::kWithChildren, error)),
        ZO_RULE_ROW(RemoveProcessProtect, (L"C:\\one"), RemoveProcessProtect(L"C:\\one", error)),
        ZO_RULE_ROW(ClearAllProcessProtect, (), ClearAllProcessProtect(error)),
        ZO_LIST_ROW(ProcessProtect, ZopProcessRuleEntry),

        ZO_RULE_ROW(AddFileProtectByPath, (L"C:\\a"), AddFileProtectByPath(L"C:\\a", error)),
        ZO_RULE_ROW(AddFileProtectByFolder, (L"C:\\a", 0, L"*.dll"),
                    AddFileProtectByFolder(L"C:\\a", {.depth = Depth::kThisOnly, .filter = L"*.dll"}, error)),
        ZO_RULE_ROW(
            AddFileProtectScoped, (L"C:\\a", 1, 0, L"*.dll", L"C:\\b", 0, 1, 1),
            AddFileProtectScoped(
                L"C:\\a", L"C:\\b",
                {.depth = Depth::kThisOnly, .filter = L"*.dll", .scopeDepth = Depth::kWithChildren, .exclusive = true},
                error)),
        ZO_RULE_ROW(RemoveFileProtect, (L"C:\\one"), RemoveFileProtect(L"C:\\one", error)),
        ZO_RULE_ROW(ClearAllFileProtect, (), ClearAllFileProtect(error)),
        ZO_RULE_ROW(EnableFileProtect, (1), EnableFileProtect(true, error)),
        ZO_RULE_ROW(AddFileIgnoreProcess, (L"C:\\a", 1, 0), AddFileIgnoreProcess(L"C:\\a", {.isFolder = true}, error)),
        ZO_RULE_ROW(RemoveFileIgnoreProcess, (L"C:\\one"), RemoveFileIgnoreProcess(L"C:\\one", error)),
        ZO_RULE_ROW(ClearAllFileIgnoreProcesses, (), ClearAllFileIgnoreProcesses(error)),
        ZO_LIST_ROW(FileProtect, ZopFileRuleEntry),

        ZO_RULE_ROW(AddRegistryProtectByKey, (L"HKLM\\a", 0),
                    AddRegistryProtectByKey(L"HKLM\\a", Depth::kThisOnly, error)),
        ZO_RULE_ROW(RemoveRegistryProtect, (L"HKLM\\one"), RemoveRegistryProtect(L"HKLM\\one", error)),
        ZO_RULE_ROW(ClearAllRegistryProtect, (), ClearAllRegistryProtect(error)),
        ZO_RULE_ROW(AddRegistryIgnoreProcess, (L"C:\\a", 0, 1),
                    AddRegistryIgnoreProcess(L"C:\\a", {.depth = Depth::kWithChildren}, error)),
        ZO_RULE_ROW(RemoveRegistryIgnoreProcess, (L"C:\\one"), RemoveRegistryIgnoreProcess(L"C:\\one", error)),
        ZO_RULE_ROW(ClearAllRegistryIgnoreProcesses, (), ClearAllRegistryIgnoreProcesses(error)),
        ZO_LIST_ROW(RegistryProtect, ZopRegistryRuleEntry),

        ZO_RULE_ROW(SetSignaturePolicy, (&kPolicy), SetSignaturePolicy(kPolicy, error)),
        ZO_RECORD_ROW(ZopSignaturePolicy, GetSignaturePolicy),
        ZO_VERDICT_ROW(QueryPidSignature),
        ZO_VERDICT_ROW(RefreshPidSignature),
        ZO_RULE_ROW(AddSignatureOverride, (99), AddSignatureOverride(99, error)),
        ZO_RULE_ROW(RemoveSignatureOverride, (kPid), RemoveSignatureOverride(kPid, error)),
        ZO_RULE_ROW(ClearAllSignatureOverrides, (), ClearAllSignatureOverrides(error)),
        ZO_RULE_ROW(EnableDllLoadFilter, (1), EnableDllLoadFilter(true, error)),
        ZO_RULE_ROW(AddDllWhitelistFolder, (L"C:\\a", 1), AddDllWhitelistFolder(L"C:\\a", Depth::kWithChildren, error)),
        ZO_RULE_ROW(RemoveDllWhitelistFolder, (L"C:\\one"), RemoveDllWhitelistFolder(L"C:\\one", error)),
        ZO_RULE_ROW(ClearAllDllWhitelist, (), ClearAllDllWhitelist(error)),
        ZO_LIST_ROW(DllWhitelist, ZopDllWhitelistEntry),

        ZO_DRAIN_ROW(EventReader, ZopEventRecord, DrainEvents),
        ZO_DRAIN_ROW(RegistryEventReader, ZopRegistryEventRecord, DrainRegistryEvents),
        ZO_RECORD_ROW(ZopStats, GetStats),
        ZO_RECORD_ROW(std::uint32_t, GetUnsignedBypassAttempts),

        {"ZoProtector_CopyDirectory",
         [](Output& output) {
             std::uint32_t done[3] = {};
             const std::int32_t status =
                 ZoProtector_CopyDirectory(Source().c_str(), Copy().c_str(), 1, 0, done, done + 1, done + 2);
             output.Add(done[0], done[1], done[2]);
             return status;
         },
         [](Output& output, ErrorTo error) {
             const auto done = session->CopyDirectory(Source(), Copy(), {.option1 = true}, error);
             output.Add(done.files, done.directories, done.skipped);
         },
         [] { zotest::RemoveTree(Copy().wstring()); }},
        ZO_RULE_ROW(AddDriverSelfProtect, (), AddDriverSelfProtect(error)),
    };
    return rows;
}

}  // namespace layertest
