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
    return (uint16_t)(field[2 * index] | (field[2 * index + 1] << 8));
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

/* The first entry whose first fields are those of the record. */
static uint32_t FindIn(const SimTable* table, const SimIndex* index, const uint8_t* record, uint32_t fields) {
    if (table->allocated == 0) return SIM_NONE;
    const uint32_t hash = HashFields(table->kind, record, fields);
    uint32_t entry = index->buckets[hash & (table->allocated - 1)];
    while (entry != SIM_NONE &&
           (index->links[entry].hash != hash || !SameFields(table->kind, EntryAt(table, entry), record, fields))) {
        entry = index->links[entry].next;
    }
    return entry;
}

static void LinkEntry(const SimTable* table, SimIndex* index, uint32_t entry, uint32_t hash) {
    uint32_t* const bucket = &index->buckets[hash & (table->allocated - 1)];
    SimLink* const link = &index->links[entry];
    link->hash = hash;
    link->previous = SIM_NONE;
    link->next = *bucket;
    if (*bucket != SIM_NONE) index->links[*bucket].previous = entry;
    *bucket = entry;
}

/* What points at the entry (its neighbours, or its bucket) points at another one afterwards. */
static void PointAt(const SimTable* table, SimIndex* index, uint32_t entry, uint32_t before, uint32_t after) {
    const SimLink* const link = &index->links[entry];
    if (link->previous != SIM_NONE) {
        index->links[link->previous].next = before;
    } else {
        index->buckets[link->hash & (table->allocated - 1)] = before;
    }
    if (link->next != SIM_NONE) index->links[link->next].previous = after;
}

static void UnlinkEntry(const SimTable* table, SimIndex* index, uint32_t entry) {
    PointAt(table, index, entry, index->links[entry].next, index->links[entry].previous);
}

static void MoveLink(const SimTable* table, SimIndex* index, uint32_t from, uint32_t to) {
    PointAt(table, index, from, to, to);
    index->links[to] = index->links[from];
}

static void LinkInBoth(SimTable* table, uint32_t entry) {
    const uint8_t* const record = EntryAt(table, entry);
    LinkEntry(table, &table->byKey, entry, HashFields(table->kind, record, 1));
    LinkEntry(table, &table->byIdentity, entry, HashFields(table->kind, record, table->kind->identityCount));
}

static BOOLEAN AllocateIndex(SimIndex* index, uint32_t entries) {
    index->buckets = SimAllocate((size_t)entries * sizeof(uint32_t));
    index->links = SimAllocate((size_t)entries * sizeof(SimLink));
    if (index->buckets == NULL || index->links == NULL) return FALSE;
    memset(index->buckets, 0xFF, (size_t)entries * sizeof(uint32_t)); /* SIM_NONE in each */
    return TRUE;
}

static void FreeStorage(SimTable* table) {
    SimFree(table->entries);
    SimFree(table->byKey.buckets);
    SimFree(table->byKey.links);
    SimFree(table->byIdentity.buckets);
    SimFree(table->byIdentity.links);
}

static BOOLEAN Grow(SimTable* table) {
    SimTable bigger;
    SimTableInit(&bigger, table->kind);
    bigger.capacity = table->capacity;
    bigger.allocated = table->allocated == 0 ? SIM_FIRST_ALLOCATION : 2 * table->allocated;
    bigger.entries = SimAllocate((size_t)bigger.allocated * bigger.entrySize);
    if (!AllocateIndex(&bigger.byKey, bigger.allocated) || !AllocateIndex(&bigger.byIdentity, bigger.allocated) ||
        bigger.entries == NULL) {
        FreeStorage(&bigger);
        return FALSE;
    }
    bigger.count = SimTableCopy(table, 0, table->count, bigger.entries);
    for (uint32_t entry = 0; entry < bigger.count; ++entry)
        LinkInBoth(&bigger, entry);
    FreeStorage(table);
    *table = bigger;
    return TRUE;
}

/* The last entry takes the place of the one removed. */
static void RemoveEntry(SimTable* table, uint32_t entry) {
    UnlinkEntry(table, &table->byKey, entry);
    UnlinkEntry(table, &table->byIdentity, entry);
    const uint32_t last = table->count - 1;
    if (entry != last) {
        MoveLink(table, &table->byKey, last, entry);
        MoveLink(table, &table->byIdentity, last, entry);
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
    if (FindIn(table, &table->byIdentity, record, table->kind->identityCount) != SIM_NONE) {
        return STATUS_OBJECT_NAME_COLLISION;
    }
    if (table->count >= table->capacity) return STATUS_QUOTA_EXCEEDED;
    if (table->count == table->allocated && !Grow(table)) return STATUS_INSUFFICIENT_RESOURCES;
    uint8_t* const place = EntryAt(table, table->count);
    memset(place, 0, table->entrySize);
    memcpy(place, record, table->kind->recordSize);
    LinkInBoth(table, table->count++);
    return STATUS_SUCCESS;
}

uint32_t SimTableRemoveKey(SimTable* table, const void* key) {
    uint32_t removed = 0;
    uint32_t entry;
    while ((entry = FindIn(table, &table->byKey, key, 1)) != SIM_NONE) {
        RemoveEntry(table, entry);
        ++removed;
    }
    return removed;
}

void* SimTableFind(SimTable* table, const void* key) {
    const uint32_t entry = FindIn(table, &table->byKey, key, 1);
    return entry == SIM_NONE ? NULL : EntryAt(table, entry);
}

uint32_t SimTableCopy(const SimTable* table, uint32_t first, uint32_t most, void* out) {
    if (first >= table->count) return 0;
    const uint32_t count = SimMin(table->count - first, most);
    if (count != 0) memcpy(out, EntryAt(table, first), (size_t)count * table->entrySize);
    return count;
}
