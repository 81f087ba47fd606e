/* The commands of \\.\ZoProtectorSimulator, as zoprotector_simulator.h describes them. */

#include "dispatch.h"
#include "simulator_state.h"

static NTSTATUS Reset(SimCall* call) {
    UNREFERENCED_PARAMETER(call);
    SimStateReset();
    return STATUS_SUCCESS;
}

static NTSTATUS GetState(SimCall* call) {
    ZoSimState* const state = call->out;
    memset(state, 0, sizeof(*state));
    state->requests = gSim.requestCount;
    state->opensSoFar = gSim.opensSoFar;
    state->openNow = gSim.openNow;
    state->forceCrashes = gSim.forceCrashes;
    state->masterEnabled = gSim.masterEnabled;
    state->fileProtectEnabled = gSim.fileProtectEnabled;
    state->dllFilterEnabled = gSim.dllFilterEnabled;
    state->signatureMode = gSim.policy.mode;
    state->signatureMinLevel = gSim.policy.minLevel;
    state->faultsPending = gSim.faultCount;
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i)
        state->tableCount[i] = gSim.tables[i].count;
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i) {
        SimRingCatchUp(&gSim.rings[i]);
        state->rings[i] = gSim.rings[i].state;
    }
    call->returned = sizeof(*state);
    return STATUS_SUCCESS;
}

static NTSTATUS GetSettings(SimCall* call) {
    memcpy(call->out, &gSim.settings, sizeof(gSim.settings));
    call->returned = sizeof(gSim.settings);
    return STATUS_SUCCESS;
}

static BOOLEAN AreSoundSettings(const ZoSimSettings* settings) {
    if (settings->statsVersion != 2 && settings->statsVersion != 3) return FALSE;
    if (settings->resumeAfterOverrun > ZOSIM_RESUME_NEWEST) return FALSE;
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i) {
        if (settings->tableCapacity[i] > ZOSIM_MAX_CAPACITY) return FALSE;
        if (settings->tableCapacity[i] < gSim.tables[i].count) return FALSE;
    }
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i) {
        if (settings->ringSlots[i] == 0 || settings->ringSlots[i] > SimRingMostSlots(i)) return FALSE;
    }
    return TRUE;
}

static NTSTATUS SetSettings(SimCall* call) {
    const ZoSimSettings* const settings = call->in;
    if (!AreSoundSettings(settings)) return STATUS_INVALID_PARAMETER;
    gSim.settings = *settings;
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i)
        gSim.tables[i].capacity = settings->tableCapacity[i];
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i)
        SimRingResize(&gSim.rings[i], settings->ringSlots[i]);
    return STATUS_SUCCESS;
}

static NTSTATUS ReadRequests(SimCall* call) {
    const uint64_t wanted = ((const ZoSimReadRequests*)call->in)->first;
    const uint64_t newest = gSim.requestCount;
    const uint64_t oldest = newest < ZOSIM_REQUESTS_KEPT ? 1 : newest - ZOSIM_REQUESTS_KEPT + 1;
    ZoSimRequestsReply* const header = call->out;
    ZoSimRequest* const requests = (ZoSimRequest*)(header + 1);
    const uint32_t fits = (call->outLength - (uint32_t)sizeof(*header)) / (uint32_t)sizeof(ZoSimRequest);
    uint32_t count = 0;
    for (uint64_t n = wanted < oldest ? oldest : wanted; n <= newest && count < fits; ++n) {
        requests[count++] = gSim.requests[n % ZOSIM_REQUESTS_KEPT];
    }
    header->newest = newest;
    header->count = count;
    header->reserved = 0;
    call->returned = (uint32_t)sizeof(*header) + count * (uint32_t)sizeof(ZoSimRequest);
    return STATUS_SUCCESS;
}

static NTSTATUS ReadTable(SimCall* call) {
    const ZoSimReadTable ask = *(const ZoSimReadTable*)call->in;
    if (ask.table >= ZOSIM_TABLE_COUNT) return STATUS_INVALID_PARAMETER;
    const SimTable* const table = &gSim.tables[ask.table];
    ZoSimTableReply* const header = call->out;
    const uint32_t fits = (call->outLength - (uint32_t)sizeof(*header)) / table->entrySize;
    header->count = SimTableCopy(table, ask.first, fits, header + 1);
    header->total = table->count;
    header->entrySize = table->entrySize;
    header->capacity = table->capacity;
    call->returned = (uint32_t)sizeof(*header) + header->count * table->entrySize;
    return STATUS_SUCCESS;
}

static NTSTATUS AddFault(SimCall* call) {
    return SimAddFault(call->in);
}

static NTSTATUS ClearFaults(SimCall* call) {
    UNREFERENCED_PARAMETER(call);
    gSim.faultCount = 0;
    return STATUS_SUCCESS;
}

static NTSTATUS InjectEvents(SimCall* call) {
    const ZoSimInjection* const injection = call->in;
    if (injection->ring >= ZOSIM_RING_COUNT) return STATUS_INVALID_PARAMETER;
    SimRing* const ring = &gSim.rings[injection->ring];
    SimRingCatchUp(ring);
    if (injection->setSequence != 0) SimRingSetSequence(ring, injection->nextSequence);
    SimRingProduce(ring, injection->count);
    return STATUS_SUCCESS;
}

static NTSTATUS SetProducer(SimCall* call) {
    const ZoSimProducer* const producer = call->in;
    if (producer->ring >= ZOSIM_RING_COUNT) return STATUS_INVALID_PARAMETER;
    SimRingSetProducer(&gSim.rings[producer->ring], producer->perDrain, producer->perSecond);
    return STATUS_SUCCESS;
}

static NTSTATUS SetPidSignature(SimCall* call) {
    const ZoSimPidSignature* const signature = call->in;
    SimTable* const table = &gSim.tables[ZOSIM_TABLE_PID];
    const uint32_t removed = SimTableRemoveKey(table, signature);
    if (signature->forget != 0) return removed == 0 ? STATUS_NOT_FOUND : STATUS_SUCCESS;
    return SimTableAdd(table, signature);
}

static NTSTATUS SetCounters(SimCall* call) {
    memcpy(gSim.counters, call->in, sizeof(gSim.counters));
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i) { /* the rings' own counts are added when counters are read */
        SimRingCatchUp(&gSim.rings[i]);
        gSim.counters[ZOSIM_COUNTER_EVENTS + 2 * i] -= (uint32_t)gSim.rings[i].state.produced;
        gSim.counters[ZOSIM_COUNTER_EVENTS_DROPPED + 2 * i] -= (uint32_t)gSim.rings[i].state.dropped;
    }
    return STATUS_SUCCESS;
}

const SimCommand kSimControlCommands[] = {
    {ZOSIM_IOCTL_RESET, 0, 0, Reset, FALSE},
    {ZOSIM_IOCTL_GET_STATE, 0, sizeof(ZoSimState), GetState, FALSE},
    {ZOSIM_IOCTL_GET_SETTINGS, 0, sizeof(ZoSimSettings), GetSettings, FALSE},
    {ZOSIM_IOCTL_SET_SETTINGS, sizeof(ZoSimSettings), 0, SetSettings, FALSE},
    {ZOSIM_IOCTL_READ_REQUESTS, sizeof(ZoSimReadRequests), sizeof(ZoSimRequestsReply), ReadRequests, FALSE},
    {ZOSIM_IOCTL_READ_TABLE, sizeof(ZoSimReadTable), sizeof(ZoSimTableReply), ReadTable, FALSE},
    {ZOSIM_IOCTL_ADD_FAULT, sizeof(ZoSimFault), 0, AddFault, FALSE},
    {ZOSIM_IOCTL_CLEAR_FAULTS, 0, 0, ClearFaults, FALSE},
    {ZOSIM_IOCTL_INJECT_EVENTS, sizeof(ZoSimInjection), 0, InjectEvents, FALSE},
    {ZOSIM_IOCTL_SET_PRODUCER, sizeof(ZoSimProducer), 0, SetProducer, FALSE},
    {ZOSIM_IOCTL_SET_PID_SIGNATURE, sizeof(ZoSimPidSignature), 0, SetPidSignature, FALSE},
    {ZOSIM_IOCTL_SET_COUNTERS, sizeof(ZoSimCounters), 0, SetCounters, FALSE},
};
const uint32_t kSimControlCommandCount = sizeof(kSimControlCommands) / sizeof(kSimControlCommands[0]);

C_ASSERT(sizeof(ZoSimSettings) == 100);
C_ASSERT(sizeof(ZoSimState) == 144);
C_ASSERT(sizeof(ZoSimRingState) == 32);
C_ASSERT(sizeof(ZoSimRequest) == 3152);
C_ASSERT(sizeof(ZoSimRequestsReply) == 16);
C_ASSERT(sizeof(ZoSimTableReply) == 16);
C_ASSERT(sizeof(ZoSimFault) == 48);
C_ASSERT(sizeof(ZoSimPidSignature) == 24);
C_ASSERT(sizeof(ZoSimCounters) == ZOP_STATS_SIZE - 4);
C_ASSERT(sizeof(ZoSimEvent) == ZOP_EVENT_RECORD_SIZE);
C_ASSERT(sizeof(ZoSimRegistryEvent) == ZOP_REGISTRY_EVENT_RECORD_SIZE);
