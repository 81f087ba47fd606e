#include "event_rings.h"

#define SIM_TICKS_PER_SECOND 10000000ull

static const WCHAR kEventPath[] = L"\\Device\\HarddiskVolume1\\Simulated\\event_";
static const WCHAR kEventSuffix[] = L".exe";
static const WCHAR kEventKey[] = L"\\REGISTRY\\MACHINE\\SOFTWARE\\Simulated\\event_";

/* prefix, eight hexadecimal digits, suffix; tells how many units that is. The field is zero before. */
static uint32_t WriteNumberedName(uint16_t* field, const WCHAR* prefix, uint32_t number, const WCHAR* suffix) {
    uint32_t units = 0;
    for (; *prefix != 0; ++prefix)
        field[units++] = *prefix;
    for (int shift = 28; shift >= 0; shift -= 4)
        field[units++] = L"0123456789ABCDEF"[(number >> shift) & 15u];
    for (; *suffix != 0; ++suffix)
        field[units++] = *suffix;
    return units;
}

static void WriteEvent(ZoSimEvent* event, uint32_t number, uint64_t time) {
    uint16_t path[260] = {0};
    event->sequence = number;
    event->kind = number % 2 == 0 ? 1u : 2u;
    event->time = time;
    event->pid = 1000u + number % 1000u;
    event->threadId = event->pid + 1u;
    event->operation = number % 5u;
    event->pathUnits = WriteNumberedName(path, kEventPath, number, kEventSuffix);
    memcpy(event->path, path, sizeof(path));
}

static void WriteRegistryEvent(ZoSimRegistryEvent* event, uint32_t number, uint64_t time) {
    uint16_t key[512] = {0};
    event->sequence = number;
    event->kind = 3u;
    event->time = time;
    event->pid = 1000u + number % 1000u;
    event->threadId = event->pid + 1u;
    event->operation = number % 5u;
    event->keyUnits = WriteNumberedName(key, kEventKey, number, L"");
    memcpy(event->key, key, sizeof(key));
}

static void ForgetKept(SimRing* ring) {
    ring->head = 0;
    ring->state.kept = 0;
}

uint32_t SimRingMostSlots(uint32_t kind) {
    return kind == ZOSIM_RING_EVENTS ? ZOP_EVENT_RING_SIZE : ZOP_REGISTRY_EVENT_RING_SIZE;
}

BOOLEAN SimRingInit(SimRing* ring, uint32_t kind) {
    memset(ring, 0, sizeof(*ring));
    ring->kind = kind;
    ring->recordSize = kind == ZOSIM_RING_EVENTS ? ZOP_EVENT_RECORD_SIZE : ZOP_REGISTRY_EVENT_RECORD_SIZE;
    ring->slots = SimRingMostSlots(kind);
    ring->records = SimAllocate((size_t)ring->slots * ring->recordSize);
    return ring->records != NULL;
}

void SimRingFree(SimRing* ring) {
    SimFree(ring->records);
    ring->records = NULL;
}

void SimRingResize(SimRing* ring, uint32_t slots) {
    if (slots == ring->slots) return;
    SimRingCatchUp(ring); /* what was due before is emptied with the rest */
    ring->slots = slots;
    ForgetKept(ring);
}

void SimRingSetSequence(SimRing* ring, uint32_t nextSequence) {
    ForgetKept(ring);
    ring->state.writerSeq = nextSequence;
}

void SimRingProduce(SimRing* ring, uint32_t count) {
    if (count == 0) return;
    LARGE_INTEGER time;
    time.QuadPart = 0; /* the linter cannot see that the kernel sets it */
    KeQuerySystemTime(&time);
    ring->state.produced += count;
    if (count > ring->slots) { /* those in front would be overwritten at once */
        ring->state.writerSeq += count - ring->slots;
        count = ring->slots;
    }
    for (; count != 0; --count) {
        uint8_t* const record = ring->records + (size_t)ring->head * ring->recordSize;
        memset(record, 0, ring->recordSize);
        if (ring->kind == ZOSIM_RING_EVENTS) {
            WriteEvent((ZoSimEvent*)record, ring->state.writerSeq, (uint64_t)time.QuadPart);
        } else {
            WriteRegistryEvent((ZoSimRegistryEvent*)record, ring->state.writerSeq, (uint64_t)time.QuadPart);
        }
        ++ring->state.writerSeq;
        ring->head = ring->head + 1 == ring->slots ? 0 : ring->head + 1;
        if (ring->state.kept < ring->slots) ++ring->state.kept;
    }
}

void SimRingSetProducer(SimRing* ring, uint32_t perDrain, uint32_t perSecond) {
    SimRingCatchUp(ring);
    ring->perDrain = perDrain;
    ring->perSecond = perSecond;
    ring->producerStart = KeQueryInterruptTime();
    ring->producerMade = 0;
}

void SimRingCatchUp(SimRing* ring) {
    if (ring->perSecond == 0) return;
    const uint64_t elapsed = KeQueryInterruptTime() - ring->producerStart;
    const uint64_t due = elapsed / SIM_TICKS_PER_SECOND * ring->perSecond +
                         elapsed % SIM_TICKS_PER_SECOND * ring->perSecond / SIM_TICKS_PER_SECOND;
    uint64_t missing = due - ring->producerMade;
    ring->producerMade = due;
    while (missing != 0) {
        const uint32_t now = missing > 0xFFFFFFFFull ? 0xFFFFFFFFu : (uint32_t)missing;
        SimRingProduce(ring, now);
        missing -= now;
    }
}

void SimRingDrain(SimRing* ring, uint32_t lastRead, uint32_t most, uint32_t resume, ZopDrainReplyHeader* header,
                  uint8_t* records) {
    ZoSimRingState* const state = &ring->state;
    uint32_t unread = state->writerSeq - lastRead; /* right across the wrap of the 32-bit sequence */
    /* More than were ever made: the position comes from an earlier life of the driver. All is new to its reader. */
    if (unread > state->produced) unread = (uint32_t)state->produced;

    uint32_t dropped = unread > state->kept ? unread - state->kept : 0;
    if (dropped != 0 && resume == ZOSIM_RESUME_NEWEST) dropped = unread;
    const uint32_t available = unread - dropped;
    const uint32_t count = SimMin(available, most);

    /* The events available are the last ones before the head; they may lie across the end of the storage. */
    const uint32_t begin = ring->head >= available ? ring->head - available : ring->head + ring->slots - available;
    const uint32_t straight = SimMin(count, ring->slots - begin);
    memcpy(records, ring->records + (size_t)begin * ring->recordSize, (size_t)straight * ring->recordSize);
    memcpy(records + (size_t)straight * ring->recordSize, ring->records, (size_t)(count - straight) * ring->recordSize);

    header->count = count;
    header->dropped = dropped;
    header->position = state->writerSeq - available + count;
    header->writerSeq = state->writerSeq;
    state->handedOut += count;
    state->dropped += dropped;
}
