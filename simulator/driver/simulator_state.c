#include "simulator_state.h"

SimState gSim;

static void ResetSettings(ZoSimSettings* settings) {
    memset(settings, 0, sizeof(*settings));
    memcpy(settings->version, kSimFileVersion, sizeof(settings->version));
    settings->statsVersion = 3;
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i)
        settings->tableCapacity[i] = ZOSIM_DEFAULT_CAPACITY;
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i)
        settings->ringSlots[i] = SimRingMostSlots(i);
}

static void ResetRing(SimRing* ring) {
    uint8_t* const records = ring->records;
    const uint32_t kind = ring->kind;
    const uint32_t recordSize = ring->recordSize;
    memset(ring, 0, sizeof(*ring));
    ring->records = records;
    ring->kind = kind;
    ring->recordSize = recordSize;
    ring->slots = SimRingMostSlots(kind);
}

NTSTATUS SimStateInit(void) {
    memset(&gSim, 0, sizeof(gSim));
    ExInitializeFastMutex(&gSim.lock);
    gSim.requests = SimAllocate(ZOSIM_REQUESTS_KEPT * sizeof(ZoSimRequest));
    BOOLEAN complete = gSim.requests != NULL;
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i)
        complete = SimRingInit(&gSim.rings[i], i) && complete;
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i)
        SimTableInit(&gSim.tables[i], &kSimTableKinds[i]);
    if (!complete) {
        SimStateFree();
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    SimStateReset();
    return STATUS_SUCCESS;
}

void SimStateFree(void) {
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i)
        SimTableClear(&gSim.tables[i]);
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i)
        SimRingFree(&gSim.rings[i]);
    SimFree(gSim.requests);
    gSim.requests = NULL;
}

void SimStateReset(void) {
    ResetSettings(&gSim.settings);
    for (uint32_t i = 0; i < ZOSIM_TABLE_COUNT; ++i) {
        SimTableClear(&gSim.tables[i]);
        gSim.tables[i].capacity = ZOSIM_DEFAULT_CAPACITY;
    }
    for (uint32_t i = 0; i < ZOSIM_RING_COUNT; ++i)
        ResetRing(&gSim.rings[i]);
    gSim.masterEnabled = 1;
    gSim.fileProtectEnabled = 0;
    gSim.dllFilterEnabled = 0;
    memset(&gSim.policy, 0, sizeof(gSim.policy));
    gSim.forceCrashes = 0;
    memset(gSim.counters, 0, sizeof(gSim.counters));
    gSim.faultCount = 0;
    gSim.requestCount = 0;
    memset(gSim.requests, 0, ZOSIM_REQUESTS_KEPT * sizeof(ZoSimRequest));
}

static void DropFault(uint32_t index) {
    for (uint32_t i = index; i + 1 < gSim.faultCount; ++i)
        gSim.faults[i] = gSim.faults[i + 1];
    --gSim.faultCount;
}

BOOLEAN SimTakeFault(uint32_t code, ZoSimFault* fault) {
    for (uint32_t i = 0; i < gSim.faultCount; ++i) {
        ZoSimFault* const candidate = &gSim.faults[i];
        if (candidate->code != ZOSIM_ANY_CODE && candidate->code != code) continue;
        if (candidate->skip != 0) {
            --candidate->skip;
            continue;
        }
        *fault = *candidate;
        if (candidate->times != ZOSIM_FOR_EVER) --candidate->times;
        if (candidate->times == 0) DropFault(i);
        return TRUE;
    }
    return FALSE;
}

NTSTATUS SimAddFault(const ZoSimFault* fault) {
    if (fault->times == 0 || fault->flags == 0) return STATUS_INVALID_PARAMETER;
    if (gSim.faultCount == ZOSIM_FAULTS_KEPT) return STATUS_QUOTA_EXCEEDED;
    gSim.faults[gSim.faultCount++] = *fault;
    return STATUS_SUCCESS;
}

void SimRecordRequest(const ZoSimRequest* request) {
    ZoSimRequest* const place = &gSim.requests[(gSim.requestCount + 1) % ZOSIM_REQUESTS_KEPT];
    *place = *request;
    place->sequence = ++gSim.requestCount;
}
