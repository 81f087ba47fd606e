/* The commands of \\.\ZoProtector: one table of what each takes and gives, and the routines. The rules are kept, listed
 * and removed as a driver would; nothing is enforced by them. */

#include "dispatch.h"
#include "file_operations.h"
#include "simulator_state.h"

/* ---- Rules ---- */

static BOOLEAN IsTerminated(const uint8_t* record, SimField field) {
    for (uint32_t i = 0; i < field.units; ++i) {
        if (record[field.offset + 2 * i] == 0 && record[field.offset + 2 * i + 1] == 0) return TRUE;
    }
    return field.units == 0;
}

/* Text ends inside its field; the key of an entry is not empty. */
static BOOLEAN IsSoundRecord(const SimTableKind* kind, const uint8_t* record, uint32_t fields) {
    for (uint32_t i = 0; i < fields; ++i) {
        if (!IsTerminated(record, kind->identity[i])) return FALSE;
    }
    return kind->identity[0].units == 0 || record[0] != 0 || record[1] != 0;
}

static NTSTATUS Add(uint32_t which, const SimCall* call) {
    SimTable* const table = &gSim.tables[which];
    if (!IsSoundRecord(table->kind, call->in, table->kind->identityCount)) return STATUS_INVALID_PARAMETER;
    const NTSTATUS status = SimTableAdd(table, call->in);
    if (NT_SUCCESS(status)) ++gSim.counters[ZOSIM_COUNTER_RULES_ADDED];
    return status;
}

static NTSTATUS Remove(uint32_t which, const SimCall* call) {
    SimTable* const table = &gSim.tables[which];
    if (!IsSoundRecord(table->kind, call->in, 1)) return STATUS_INVALID_PARAMETER;
    const uint32_t removed = SimTableRemoveKey(table, call->in);
    gSim.counters[ZOSIM_COUNTER_RULES_REMOVED] += removed;
    return removed == 0 ? STATUS_NOT_FOUND : STATUS_SUCCESS;
}

static NTSTATUS Clear(uint32_t which) {
    gSim.counters[ZOSIM_COUNTER_RULES_REMOVED] += gSim.tables[which].count;
    SimTableClear(&gSim.tables[which]);
    return STATUS_SUCCESS;
}

static NTSTATUS List(uint32_t which, SimCall* call) {
    const SimTable* const table = &gSim.tables[which];
    ZopListReplyHeader* const header = call->out;
    const uint32_t fits = (call->outLength - (uint32_t)sizeof(*header)) / table->entrySize;
    const uint32_t copied = SimTableCopy(table, 0, fits, header + 1);
    header->total = table->count;
    header->returned = copied;
    header->truncated = table->count - copied;
    header->unused = 0;
    call->returned = (uint32_t)sizeof(*header) + copied * table->entrySize;
    return STATUS_SUCCESS;
}

#define SIM_ADD_REMOVE_CLEAR(Name, which)         \
    static NTSTATUS Add##Name(SimCall* call) {    \
        return Add(which, call);                  \
    }                                             \
    static NTSTATUS Remove##Name(SimCall* call) { \
        return Remove(which, call);               \
    }                                             \
    static NTSTATUS Clear##Name(SimCall* call) {  \
        UNREFERENCED_PARAMETER(call);             \
        return Clear(which);                      \
    }
#define SIM_LIST(Name, which)                   \
    static NTSTATUS List##Name(SimCall* call) { \
        return List(which, call);               \
    }

SIM_ADD_REMOVE_CLEAR(Process, ZOSIM_TABLE_PROCESS)
SIM_ADD_REMOVE_CLEAR(File, ZOSIM_TABLE_FILE)
SIM_ADD_REMOVE_CLEAR(Registry, ZOSIM_TABLE_REGISTRY)
SIM_ADD_REMOVE_CLEAR(Dll, ZOSIM_TABLE_DLL)
SIM_ADD_REMOVE_CLEAR(FileIgnore, ZOSIM_TABLE_FILE_IGNORE)
SIM_ADD_REMOVE_CLEAR(RegistryIgnore, ZOSIM_TABLE_REGISTRY_IGNORE)
SIM_ADD_REMOVE_CLEAR(Override, ZOSIM_TABLE_OVERRIDE)
SIM_LIST(Process, ZOSIM_TABLE_PROCESS)
SIM_LIST(File, ZOSIM_TABLE_FILE)
SIM_LIST(Registry, ZOSIM_TABLE_REGISTRY)
SIM_LIST(Dll, ZOSIM_TABLE_DLL)

/* ---- Switches: the byte is kept as it was sent ---- */

static NTSTATUS SetMaster(SimCall* call) {
    gSim.masterEnabled = ((const ZopToggleRecord*)call->in)->state;
    return STATUS_SUCCESS;
}

static NTSTATUS GetMaster(SimCall* call) {
    ((ZopToggleRecord*)call->out)->state = gSim.masterEnabled;
    call->returned = sizeof(ZopToggleRecord);
    return STATUS_SUCCESS;
}

static NTSTATUS EnableFileProtect(SimCall* call) {
    gSim.fileProtectEnabled = ((const ZopToggleRecord*)call->in)->state;
    return STATUS_SUCCESS;
}

static NTSTATUS EnableDllFilter(SimCall* call) {
    gSim.dllFilterEnabled = ((const ZopToggleRecord*)call->in)->state;
    return STATUS_SUCCESS;
}

/* ---- Status, version, counters ---- */

static NTSTATUS GetVersion(SimCall* call) {
    memcpy(call->out, gSim.settings.version, sizeof(ZopVersionReply));
    call->returned = sizeof(ZopVersionReply);
    return STATUS_SUCCESS;
}

static NTSTATUS GetStatus(SimCall* call) {
    ZopStatusReply* const reply = call->out;
    const uint8_t flags[4] = {gSim.masterEnabled, gSim.fileProtectEnabled, 1, gSim.dllFilterEnabled};
    for (uint32_t i = 0; i < 4; ++i) { /* the pairs go with the first four tables */
        const BOOLEAN given = gSim.settings.useStatusReply != 0;
        reply->pairs[i].flag = given ? (uint8_t)gSim.settings.statusFlag[i] : flags[i];
        reply->pairs[i].count = given ? gSim.settings.statusCount[i] : gSim.tables[i].count;
    }
    call->returned = sizeof(*reply);
    return STATUS_SUCCESS;
}

/* What the rings have counted themselves comes on top of what was set. */
static void CountersNow(uint32_t* counters) {
    memcpy(counters, gSim.counters, sizeof(gSim.counters));
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i) {
        SimRingCatchUp(&gSim.rings[i]);
        counters[ZOSIM_COUNTER_EVENTS + 2 * i] += (uint32_t)gSim.rings[i].state.produced;
        counters[ZOSIM_COUNTER_EVENTS_DROPPED + 2 * i] += (uint32_t)gSim.rings[i].state.dropped;
    }
}

static NTSTATUS GetStats(SimCall* call) {
    uint32_t counters[ZOSIM_COUNTERS];
    CountersNow(counters);
    const uint32_t size = gSim.settings.statsVersion >= 3 ? ZOP_STATS_SIZE : ZOSIM_STATS_SIZE_LAYOUT_2;
    if (call->outLength < size) return STATUS_BUFFER_TOO_SMALL;
    uint8_t* const out = call->out;
    memcpy(out, &gSim.settings.statsVersion, 4);
    memcpy(out + 4, counters, size - 4);
    call->returned = size;
    return STATUS_SUCCESS;
}

/* The real driver answers by crashing the system on purpose. */
static NTSTATUS ForceCrash(SimCall* call) {
    UNREFERENCED_PARAMETER(call);
    ++gSim.forceCrashes;
    return STATUS_SUCCESS;
}

/* ---- Events ---- */

static NTSTATUS Drain(uint32_t which, SimCall* call) {
    SimRing* const ring = &gSim.rings[which];
    const ZopDrainRequest request = *(const ZopDrainRequest*)call->in;
    ZopDrainReplyHeader header;
    const uint32_t fits = (call->outLength - (uint32_t)sizeof(header)) / ring->recordSize;
    SimRingCatchUp(ring);
    SimRingProduce(ring, ring->perDrain);
    SimRingDrain(ring, request.lastRead, SimMin(request.capacity, fits), gSim.settings.resumeAfterOverrun, &header,
                 (uint8_t*)call->out + sizeof(header));
    memcpy(call->out, &header, sizeof(header));
    call->returned = (uint32_t)sizeof(header) + header.count * ring->recordSize;
    return STATUS_SUCCESS;
}

static NTSTATUS DrainEvents(SimCall* call) {
    return Drain(ZOSIM_RING_EVENTS, call);
}

static NTSTATUS DrainRegistryEvents(SimCall* call) {
    return Drain(ZOSIM_RING_REGISTRY, call);
}

/* ---- Signatures ---- */

static NTSTATUS GetPolicy(SimCall* call) {
    memcpy(call->out, &gSim.policy, sizeof(gSim.policy));
    call->returned = sizeof(gSim.policy);
    return STATUS_SUCCESS;
}

static NTSTATUS SetPolicy(SimCall* call) {
    memcpy(&gSim.policy, call->in, sizeof(gSim.policy));
    return STATUS_SUCCESS;
}

static NTSTATUS AnswerSignature(BOOLEAN refresh, SimCall* call) {
    ZoSimPidSignature* const known = SimTableFind(&gSim.tables[ZOSIM_TABLE_PID], call->in);
    if (known == NULL) return STATUS_NOT_FOUND;
    if (refresh) {
        known->first = known->refreshedFirst;
        known->second = known->refreshedSecond;
        ++gSim.counters[ZOSIM_COUNTER_REFRESHES];
    }
    ZopSignatureReply* const reply = call->out;
    memset(reply, 0, sizeof(*reply));
    reply->first = (uint8_t)known->first;
    reply->second = (uint8_t)known->second;
    call->returned = sizeof(*reply);
    return STATUS_SUCCESS;
}

static NTSTATUS QuerySignature(SimCall* call) {
    return AnswerSignature(FALSE, call);
}

static NTSTATUS RefreshSignature(SimCall* call) {
    return AnswerSignature(TRUE, call);
}

/* ---- The table ---- */

#define SIM_HEADER (uint32_t)sizeof(ZopListReplyHeader)

const SimCommand kSimDriverCommands[] = {
    {ZOP_IOCTL_ADD_PROCESS_RULE, sizeof(ZopRuleRecord), 0, AddProcess, FALSE},
    {ZOP_IOCTL_REMOVE_PROCESS_RULE, sizeof(ZopPathRecord), 0, RemoveProcess, FALSE},
    {ZOP_IOCTL_CLEAR_PROCESS_RULES, 0, 0, ClearProcess, FALSE},
    {ZOP_IOCTL_LIST_PROCESS_RULES, 0, SIM_HEADER, ListProcess, FALSE},
    {ZOP_IOCTL_ADD_FILE_RULE, sizeof(ZopFileRuleRecord), 0, AddFile, FALSE},
    {ZOP_IOCTL_REMOVE_FILE_RULE, sizeof(ZopPathRecord), 0, RemoveFile, FALSE},
    {ZOP_IOCTL_CLEAR_FILE_RULES, 0, 0, ClearFile, FALSE},
    {ZOP_IOCTL_ENABLE_FILE_PROTECT, sizeof(ZopToggleRecord), 0, EnableFileProtect, FALSE},
    {ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, sizeof(ZopRuleRecord), 0, AddFileIgnore, FALSE},
    {ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS, sizeof(ZopPathRecord), 0, RemoveFileIgnore, FALSE},
    {ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, 0, 0, ClearFileIgnore, FALSE},
    {ZOP_IOCTL_LIST_FILE_RULES, 0, SIM_HEADER, ListFile, FALSE},
    {ZOP_IOCTL_ADD_REGISTRY_RULE, sizeof(ZopRegistryRuleRecord), 0, AddRegistry, FALSE},
    {ZOP_IOCTL_REMOVE_REGISTRY_RULE, sizeof(ZopRegistryKeyRecord), 0, RemoveRegistry, FALSE},
    {ZOP_IOCTL_CLEAR_REGISTRY_RULES, 0, 0, ClearRegistry, FALSE},
    {ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS, sizeof(ZopRuleRecord), 0, AddRegistryIgnore, FALSE},
    {ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS, sizeof(ZopPathRecord), 0, RemoveRegistryIgnore, FALSE},
    {ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES, 0, 0, ClearRegistryIgnore, FALSE},
    {ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, sizeof(ZopDrainRequest), SIM_HEADER, DrainRegistryEvents, FALSE},
    {ZOP_IOCTL_LIST_REGISTRY_RULES, 0, SIM_HEADER, ListRegistry, FALSE},
    {ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER, sizeof(ZopToggleRecord), 0, EnableDllFilter, FALSE},
    {ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, sizeof(ZopDllFolderRecord), 0, AddDll, FALSE},
    {ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER, sizeof(ZopPathRecord), 0, RemoveDll, FALSE},
    {ZOP_IOCTL_CLEAR_DLL_WHITELIST, 0, 0, ClearDll, FALSE},
    {ZOP_IOCTL_LIST_DLL_WHITELIST, 0, SIM_HEADER, ListDll, FALSE},
    {ZOP_IOCTL_COPY_DIRECTORY, sizeof(ZoProtectorCopyDirectoryRequest), sizeof(ZoProtectorCopyDirectoryResult),
     SimCopyDirectory, TRUE},
    {ZOP_IOCTL_REPLACE_FILE, sizeof(ZoProtectorReplaceFileRequest), 0, SimReplaceFile, TRUE},
    {ZOP_IOCTL_GET_STATUS, 0, sizeof(ZopStatusReply), GetStatus, FALSE},
    {ZOP_IOCTL_GET_VERSION, 0, sizeof(ZopVersionReply), GetVersion, FALSE},
    {ZOP_IOCTL_GET_STATS, 0, 0, GetStats, FALSE},
    {ZOP_IOCTL_DRAIN_EVENTS, sizeof(ZopDrainRequest), SIM_HEADER, DrainEvents, FALSE},
    {ZOP_IOCTL_QUERY_PID_SIGNATURE, sizeof(ZopPidRecord), sizeof(ZopSignatureReply), QuerySignature, FALSE},
    {ZOP_IOCTL_GET_SIGNATURE_POLICY, 0, sizeof(ZopSignaturePolicy), GetPolicy, FALSE},
    {ZOP_IOCTL_SET_SIGNATURE_POLICY, sizeof(ZopSignaturePolicy), 0, SetPolicy, FALSE},
    {ZOP_IOCTL_REFRESH_PID_SIGNATURE, sizeof(ZopPidRecord), sizeof(ZopSignatureReply), RefreshSignature, FALSE},
    {ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, sizeof(ZopPidRecord), 0, AddOverride, FALSE},
    {ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE, sizeof(ZopPidRecord), 0, RemoveOverride, FALSE},
    {ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES, 0, 0, ClearOverride, FALSE},
    {ZOP_IOCTL_SET_MASTER_ENABLED, sizeof(ZopToggleRecord), 0, SetMaster, FALSE},
    {ZOP_IOCTL_GET_MASTER_ENABLED, 0, sizeof(ZopToggleRecord), GetMaster, FALSE},
    {ZOP_IOCTL_FORCE_CRASH, 0, 0, ForceCrash, FALSE},
};
const uint32_t kSimDriverCommandCount = sizeof(kSimDriverCommands) / sizeof(kSimDriverCommands[0]);
