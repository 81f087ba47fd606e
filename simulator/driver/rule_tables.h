#ifndef ZOSIM_RULE_TABLES_H
#define ZOSIM_RULE_TABLES_H

/* The driver's tables: rules, processes to ignore, signature overrides, known processes. A table holds records of one
 * size, finds out whether a new one is the same as an old one, and has a limit. Its entries form one block in the
 * layout of a list reply, so that listing is one copy. A hash index over the keys makes adding, finding and removing
 * independent of the table's size; entries that share a key form a chain, which is searched. Not locked: the caller
 * holds the simulator's lock. */

#include "kernel.h"

#define SIM_IDENTITY_FIELDS 3

/* A field that decides whether two records are the same: text, compared ignoring case, or (units 0) a 32-bit number. */
typedef struct SimField {
    uint32_t offset;
    uint32_t units;
} SimField;

/* The kind of a table. Its first identity field is the key: the path, registry key or process id by which entries are
 * removed. It is at offset 0 of the record. */
typedef struct SimTableKind {
    uint32_t recordSize;
    uint32_t identityCount;
    SimField identity[SIM_IDENTITY_FIELDS];
} SimTableKind;

typedef struct SimLink {
    uint32_t keyHash; /* chooses the bucket */
    uint32_t identityHash;
    uint32_t previous; /* entry in the same bucket, or SIM_NONE */
    uint32_t next;
} SimLink;

typedef struct SimTable {
    const SimTableKind* kind;
    uint32_t entrySize; /* the record zero-padded to a multiple of 4 */
    uint32_t capacity;  /* the limit; storage grows towards it */
    uint32_t allocated; /* entries that fit in the storage, a power of two; also the number of buckets */
    uint32_t count;
    uint8_t* entries;
    uint32_t* buckets; /* first entry of each, or SIM_NONE */
    SimLink* links;    /* one for each entry */
} SimTable;

/* Indexed by ZOSIM_TABLE_... */
extern const SimTableKind kSimTableKinds[ZOSIM_TABLE_COUNT];

void SimTableInit(SimTable* table, const SimTableKind* kind);
/* Removes all entries and frees the storage. */
void SimTableClear(SimTable* table);

/* STATUS_OBJECT_NAME_COLLISION when the same entry exists, STATUS_QUOTA_EXCEEDED when the table is full. */
NTSTATUS SimTableAdd(SimTable* table, const void* record);

/* Removes every entry with this key and returns how many there were. */
uint32_t SimTableRemoveKey(SimTable* table, const void* key);

/* The entry with this key, or NULL; valid until the table changes. */
void* SimTableFind(SimTable* table, const void* key);

/* Copies at most `most` entries, starting at `first`, and returns how many. */
uint32_t SimTableCopy(const SimTable* table, uint32_t first, uint32_t most, void* out);

#endif
