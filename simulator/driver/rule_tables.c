#include "rule_tables.h"

#define SIM_NONE 0xFFFFFFFFu
#define SIM_FIRST_ALLOCATION 16u

const SimTableKind kSimTableKinds[ZOSIM_TABLE_COUNT] = {
    {sizeof(ZopRuleRecord), 1, {{0, ZOP_PATH_UNITS}}},
    {sizeof(ZopFileRuleRecord),
     3,
     {{0, ZOP_PATH_UNITS},
      {offsetof(ZopFileRuleRecord, filter), ZOP_FILTER_UNITS},
      {offsetof(ZopFileRuleRecord, scopePath), ZOP_PATH_UNITS}}},
    {sizeof(ZopRegistryRuleRecord), 1, {{0, ZOP_KEY_UNITS}}},
    {sizeof(ZopDllFolderRecord), 1, {{0, ZOP_PATH_UNITS}}},
    {sizeof(ZopRuleRecord), 1, {{0, ZOP_PATH_UNITS}}},
    {sizeof(ZopRuleRecord), 1, {{0, ZOP_PATH_UNITS}}},
    {sizeof(ZopPidRecord), 1, {{0, 0}}},
    {sizeof(ZoSimPidSignature), 1, {{0, 0}}},
};

/* Records are packed and entries are multiples of 4 bytes apart, but fields lie anywhere. */
static uint16_t UnitAt(const uint8_t* field, uint32_t index) {
    const uint8_t* const unit = field + (size_t)2 * index;
    return (uint16_t)(unit[0] | (unit[1] << 8));
}

static uint32_t HashField(const uint8_t* record, SimField field, uint32_t hash) {
    const uint8_t* const bytes = record + field.offset;
    if (field.units == 0) {
        for (uint32_t i = 0; i < 4; ++i)
            hash = (hash ^ bytes[i]) * 16777619u;
        return hash;
    }
    for (uint32_t i = 0; i < field.units && UnitAt(bytes, i) != 0; ++i) {
        hash = (hash ^ RtlUpcaseUnicodeChar(UnitAt(bytes, i))) * 16777619u;
    }
    return (hash ^ 0xFFFFu) * 16777619u; /* where this field ends matters to the hash of several */
}

static BOOLEAN SameField(const uint8_t* a, const uint8_t* b, SimField field) {
    a += field.offset;
    b += field.offset;
    if (field.units == 0) return memcmp(a, b, 4) == 0;
    for (uint32_t i = 0; i < field.units; ++i) {
        const uint16_t left = UnitAt(a, i);
        const uint16_t right = UnitAt(b, i);
        if (left != right && RtlUpcaseUnicodeChar(left) != RtlUpcaseUnicodeChar(right)) return FALSE;
        if (left == 0) return TRUE;
    }
    return TRUE;
}

static uint32_t HashFields(const SimTableKind* kind, const uint8_t* record, uint32_t fields) {
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < fields; ++i)
        hash = HashField(record, kind->identity[i], hash);
    return hash;
}

static BOOLEAN SameFields(const SimTableKind* kind, const uint8_t* a, const uint8_t* b, uint32_t fields) {
    for (uint32_t i = 0; i < fields; ++i) {
        if (!SameField(a, b, kind->identity[i])) return FALSE;
    }
    return TRUE;
}

static uint8_t* EntryAt(const SimTable* table, uint32_t entry) {
    return table->entries + (size_t)entry * table->entrySize;
}

/* The newest entry whose first fields equal the record's: 1 for the key alone, or all of the identity. Entries that
 * share a key are in one bucket, so its chain serves both; the hash in each link keeps different records from being
 * compared. */
static uint32_t FindEntry(const SimTable* table, const uint8_t* record, uint32_t fields) {
    if (table->allocated == 0) return SIM_NONE;
    const uint32_t keyHash = HashFields(table->kind, record, 1);
    const uint32_t hash = fields == 1 ? keyHash : HashFields(table->kind, record, fields);
    uint32_t entry = table->buckets[keyHash & (table->allocated - 1)];
    while (entry != SIM_NONE) {
        const SimLink* const link = &table->links[entry];
        if ((fields == 1 ? link->keyHash : link->identityHash) == hash &&
            SameFields(table->kind, EntryAt(table, entry), record, fields)) {
            break;
        }
        entry = link->next;
    }
    return entry;
}

static void LinkEntry(SimTable* table, uint32_t entry) {
    const uint8_t* const record = EntryAt(table, entry);
    SimLink* const link = &table->links[entry];
    link->keyHash = HashFields(table->kind, record, 1);
    link->identityHash = HashFields(table->kind, record, table->kind->identityCount);
    uint32_t* const bucket = &table->buckets[link->keyHash & (table->allocated - 1)];
    link->previous = SIM_NONE;
    link->next = *bucket;
    if (*bucket != SIM_NONE) table->links[*bucket].previous = entry;
    *bucket = entry;
}

/* Changes what points at the entry: its neighbours, or its bucket when it is the first. */
static void PointAt(SimTable* table, uint32_t entry, uint32_t nextOfPrevious, uint32_t previousOfNext) {
    const SimLink* const link = &table->links[entry];
    if (link->previous != SIM_NONE) {
        table->links[link->previous].next = nextOfPrevious;
    } else {
        table->buckets[link->keyHash & (table->allocated - 1)] = nextOfPrevious;
    }
    if (link->next != SIM_NONE) table->links[link->next].previous = previousOfNext;
}

static void UnlinkEntry(SimTable* table, uint32_t entry) {
    PointAt(table, entry, table->links[entry].next, table->links[entry].previous);
}

static void MoveLink(SimTable* table, uint32_t from, uint32_t to) {
    PointAt(table, from, to, to);
    table->links[to] = table->links[from];
}

static void FreeStorage(SimTable* table) {
    SimFree(table->entries);
    SimFree(table->buckets);
    SimFree(table->links);
}

static BOOLEAN Grow(SimTable* table) {
    SimTable bigger;
    SimTableInit(&bigger, table->kind);
    bigger.capacity = table->capacity;
    bigger.allocated = table->allocated == 0 ? SIM_FIRST_ALLOCATION : 2 * table->allocated;
    bigger.entries = SimAllocate((size_t)bigger.allocated * bigger.entrySize);
    bigger.buckets = SimAllocate((size_t)bigger.allocated * sizeof(uint32_t));
    bigger.links = SimAllocate((size_t)bigger.allocated * sizeof(SimLink));
    if (bigger.entries == NULL || bigger.buckets == NULL || bigger.links == NULL) {
        FreeStorage(&bigger);
        return FALSE;
    }
    memset(bigger.buckets, 0xFF, (size_t)bigger.allocated * sizeof(uint32_t)); /* SIM_NONE in each */
    bigger.count = SimTableCopy(table, 0, table->count, bigger.entries);
    for (uint32_t entry = 0; entry < bigger.count; ++entry)
        LinkEntry(&bigger, entry);
    FreeStorage(table);
    *table = bigger;
    return TRUE;
}

/* The last entry moves to the place of the removed one. */
static void RemoveEntry(SimTable* table, uint32_t entry) {
    UnlinkEntry(table, entry);
    const uint32_t last = table->count - 1;
    if (entry != last) {
        MoveLink(table, last, entry);
        memcpy(EntryAt(table, entry), EntryAt(table, last), table->entrySize);
    }
    table->count = last;
}

void SimTableInit(SimTable* table, const SimTableKind* kind) {
    memset(table, 0, sizeof(*table));
    table->kind = kind;
    table->entrySize = (kind->recordSize + 3u) & ~3u;
    table->capacity = ZOSIM_DEFAULT_CAPACITY;
}

void SimTableClear(SimTable* table) {
    const uint32_t capacity = table->capacity;
    FreeStorage(table);
    SimTableInit(table, table->kind);
    table->capacity = capacity;
}

NTSTATUS SimTableAdd(SimTable* table, const void* record) {
    if (FindEntry(table, record, table->kind->identityCount) != SIM_NONE) return STATUS_OBJECT_NAME_COLLISION;
    if (table->count >= table->capacity) return STATUS_QUOTA_EXCEEDED;
    if (table->count == table->allocated && !Grow(table)) return STATUS_INSUFFICIENT_RESOURCES;
    uint8_t* const place = EntryAt(table, table->count);
    memset(place, 0, table->entrySize);
    memcpy(place, record, table->kind->recordSize);
    LinkEntry(table, table->count++);
    return STATUS_SUCCESS;
}

uint32_t SimTableRemoveKey(SimTable* table, const void* key) {
    uint32_t removed = 0;
    uint32_t entry;
    while ((entry = FindEntry(table, key, 1)) != SIM_NONE) {
        RemoveEntry(table, entry);
        ++removed;
    }
    return removed;
}

void* SimTableFind(SimTable* table, const void* key) {
    const uint32_t entry = FindEntry(table, key, 1);
    return entry == SIM_NONE ? NULL : EntryAt(table, entry);
}

uint32_t SimTableCopy(const SimTable* table, uint32_t first, uint32_t most, void* out) {
    if (first >= table->count) return 0;
    const uint32_t count = SimMin(table->count - first, most);
    if (count != 0) memcpy(out, EntryAt(table, first), (size_t)count * table->entrySize);
    return count;
}
