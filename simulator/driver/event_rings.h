#ifndef ZOSIM_EVENT_RINGS_H
#define ZOSIM_EVENT_RINGS_H

/* The two event rings. New events overwrite the oldest; a reader passes the position that it has reached and gets what
 * follows. Not locked: the caller holds the simulator's lock. */

#include "kernel.h"

typedef struct SimRing {
    uint32_t kind; /* ZOSIM_RING_... */
    uint32_t recordSize;
    uint32_t slots;
    uint8_t* records;
    uint32_t head; /* slot of the next event */
    ZoSimRingState state;
    uint32_t perDrain;
    uint32_t perSecond;
    uint64_t producerStart; /* interrupt time, 100 ns */
    uint64_t producerMade;
} SimRing;

/* FALSE when there is no memory. The slots are those after a reset. */
BOOLEAN SimRingInit(SimRing* ring, uint32_t kind);
void SimRingFree(SimRing* ring);

/* Empties the ring; its sequence goes on. Only for fewer slots than there is storage for (ZOP_..._RING_SIZE). */
void SimRingResize(SimRing* ring, uint32_t slots);

void SimRingProduce(SimRing* ring, uint32_t count);
void SimRingSetSequence(SimRing* ring, uint32_t nextSequence);
void SimRingSetProducer(SimRing* ring, uint32_t perDrain, uint32_t perSecond);
/* Makes the events that the producer's rate calls for by now. */
void SimRingCatchUp(SimRing* ring);

/* Fills the header and copies at most most records behind it. */
void SimRingDrain(SimRing* ring, uint32_t lastRead, uint32_t most, uint32_t resume, ZopDrainReplyHeader* header,
                  uint8_t* records);

/* The most slots that a ring can have. */
uint32_t SimRingMostSlots(uint32_t kind);

#endif
