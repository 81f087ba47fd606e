#ifndef ZOSIM_SIMULATOR_STATE_H
#define ZOSIM_SIMULATOR_STATE_H

/* Everything that the driver remembers, in one place, with the lock over it. */

#include "event_rings.h"
#include "kernel.h"
#include "rule_tables.h"

typedef struct SimState {
    FAST_MUTEX lock; /* over all that follows */
    ZoSimSettings settings;
    SimTable tables[ZOSIM_TABLE_COUNT];
    SimRing rings[ZOSIM_RING_COUNT];
    uint8_t masterEnabled;
    uint8_t fileProtectEnabled;
    uint8_t dllFilterEnabled;
    ZopSignaturePolicy policy;
    uint32_t forceCrashes;
    uint32_t opensSoFar;
    uint32_t openNow;
    uint32_t counters[ZOSIM_COUNTERS];
    ZoSimFault faults[ZOSIM_FAULTS_KEPT];
    uint32_t faultCount;
    ZoSimRequest* requests; /* ZOSIM_REQUESTS_KEPT, the one with sequence n at n % ZOSIM_REQUESTS_KEPT */
    uint64_t requestCount;
} SimState;

extern SimState gSim;

/* The version that the driver answers after a reset: that of its own file, set for each variant of it. */
extern const uint32_t kSimFileVersion[3];

NTSTATUS SimStateInit(void);
void SimStateFree(void);

/* The following are called with the lock held. */

/* All as after SimStateInit; what was opened stays open. */
void SimStateReset(void);

/* Finds the fault for a command and uses it up by one. FALSE when there is none. */
BOOLEAN SimTakeFault(uint32_t code, ZoSimFault* fault);
NTSTATUS SimAddFault(const ZoSimFault* fault);

/* Keeps a request among the last ones. */
void SimRecordRequest(const ZoSimRequest* request);

#endif
