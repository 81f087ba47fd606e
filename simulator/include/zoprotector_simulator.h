#ifndef ZOPROTECTOR_SIMULATOR_H
#define ZOPROTECTOR_SIMULATOR_H

/* The control device of the simulator driver, for both sides of it.
 *
 * The simulator is a driver that the service manager loads as "ZoProtector" and that answers every command of
 * driver_records.h with real tables behind it. IT ENFORCES NOTHING: a rule is kept and listed, but no process, file,
 * key or module load is ever held back because of it. It lets programs that use the library be written and tested
 * without the real driver.
 *
 * Beside "\\.\ZoProtector" it offers a second device, "\\.\ZoProtectorSimulator". What is sent there is described
 * here: see what the library sent, script faults, choose what the driver claims to be, inject events, start afresh.
 * Nothing sent to the control device counts as a request or touches the tables, unless it says so.
 *
 * Plain C99, no windows.h, no driver kit. A command is one DeviceIoControl with the records named beside its code; all
 * records are little-endian with natural alignment and without padding. Every length is checked: one that is wrong is
 * answered with STATUS_INVALID_PARAMETER (Win32 error 87). A reply that cannot hold even its header is answered with
 * STATUS_BUFFER_TOO_SMALL (122). Settings and faults live until ZOSIM_IOCTL_RESET or the driver's unloading. */

#include <stdint.h>

#define ZOSIM_DEVICE_PATH L"\\\\.\\ZoProtectorSimulator"

/* CTL_CODE(0x8001, 0x800 + function, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS) */
#define ZOSIM_IOCTL(function) (0x8001E000u + 4u * (function))

#define ZOSIM_IOCTL_RESET ZOSIM_IOCTL(0x000u)             /* all as right after loading; open handles stay */
#define ZOSIM_IOCTL_GET_STATE ZOSIM_IOCTL(0x001u)         /* out ZoSimState */
#define ZOSIM_IOCTL_GET_SETTINGS ZOSIM_IOCTL(0x002u)      /* out ZoSimSettings */
#define ZOSIM_IOCTL_SET_SETTINGS ZOSIM_IOCTL(0x003u)      /* in ZoSimSettings */
#define ZOSIM_IOCTL_READ_REQUESTS ZOSIM_IOCTL(0x004u)     /* in ZoSimReadRequests, out ZoSimRequestsReply + requests */
#define ZOSIM_IOCTL_READ_TABLE ZOSIM_IOCTL(0x005u)        /* in ZoSimReadTable, out ZoSimTableReply + entries */
#define ZOSIM_IOCTL_ADD_FAULT ZOSIM_IOCTL(0x006u)         /* in ZoSimFault */
#define ZOSIM_IOCTL_CLEAR_FAULTS ZOSIM_IOCTL(0x007u)      /* none */
#define ZOSIM_IOCTL_INJECT_EVENTS ZOSIM_IOCTL(0x008u)     /* in ZoSimInjection */
#define ZOSIM_IOCTL_SET_PRODUCER ZOSIM_IOCTL(0x009u)      /* in ZoSimProducer */
#define ZOSIM_IOCTL_SET_PID_SIGNATURE ZOSIM_IOCTL(0x00Au) /* in ZoSimPidSignature */
#define ZOSIM_IOCTL_SET_COUNTERS ZOSIM_IOCTL(0x00Bu)      /* in ZoSimCounters */

/* ---- What the driver claims to be, and how much it holds ------------------------------------------------------- */

/* Tables. A list of the driver and ZOSIM_IOCTL_READ_TABLE show entries in the order in which they were added; when one
 * is removed, the last takes its place. */
#define ZOSIM_TABLE_PROCESS 0u         /* ZopRuleRecord, entries of 1044 bytes */
#define ZOSIM_TABLE_FILE 1u            /* ZopFileRuleRecord, 2344 */
#define ZOSIM_TABLE_REGISTRY 2u        /* ZopRegistryRuleRecord, 1028 */
#define ZOSIM_TABLE_DLL 3u             /* ZopDllFolderRecord, 1044 */
#define ZOSIM_TABLE_FILE_IGNORE 4u     /* ZopRuleRecord, 1044 */
#define ZOSIM_TABLE_REGISTRY_IGNORE 5u /* ZopRuleRecord, 1044 */
#define ZOSIM_TABLE_OVERRIDE 6u        /* ZopPidRecord, 8: processes exempt from the signature policy */
#define ZOSIM_TABLE_PID 7u             /* ZoSimPidSignature, 24: processes whose signature is known */
#define ZOSIM_TABLE_COUNT 8u

#define ZOSIM_DEFAULT_CAPACITY 1024u /* of each table, after a reset */
#define ZOSIM_MAX_CAPACITY 65536u

/* The rings, and how many events each holds after a reset (also the most that can be set). */
#define ZOSIM_RING_EVENTS 0u
#define ZOSIM_RING_REGISTRY 1u
#define ZOSIM_RING_COUNT 2u
#define ZOP_EVENT_RING_SIZE 1024u
#define ZOP_REGISTRY_EVENT_RING_SIZE 512u

/* Where a reader resumes that was overtaken: at the oldest event still kept, or behind the newest (a driver that gives
 * up what is unread). Either way all that the reader will never get is in the drain's dropped count. */
#define ZOSIM_RESUME_OLDEST 0u
#define ZOSIM_RESUME_NEWEST 1u

typedef struct ZoSimSettings { /* 100 bytes */
    uint32_t version[3];       /* major, minor, patch that get-version answers; after a reset its file's */
    uint32_t statsVersion;     /* 3: get-stats answers 76 bytes; 2: 56 bytes. After a reset 3 */
    uint32_t tableCapacity[ZOSIM_TABLE_COUNT]; /* at most ZOSIM_MAX_CAPACITY, not below what a table holds now */
    uint32_t ringSlots[ZOSIM_RING_COUNT];      /* from 1; changing one empties that ring and keeps its sequence */
    uint32_t resumeAfterOverrun;               /* ZOSIM_RESUME_... */
    /* 0: get-status answers from the driver's own state, as the pairs (master switch, process rules), (file switch,
     * file rules), (1, registry rules), (DLL filter switch, whitelist folders). Other: it answers what follows. */
    uint32_t useStatusReply;
    uint32_t statusFlag[4]; /* the low byte is sent */
    uint32_t statusCount[4];
    uint32_t refuseStop; /* other than 0: stopping the service fails and the driver runs on; after a reset 0 */
} ZoSimSettings;

/* ---- What happened so far -------------------------------------------------------------------------------------- */

typedef struct ZoSimRingState { /* 32 bytes */
    uint64_t produced;          /* events since loading or reset */
    uint64_t handedOut;         /* records that drains delivered */
    uint64_t dropped;           /* sum of the drains' dropped counts */
    uint32_t writerSeq;         /* sequence of the next event */
    uint32_t kept;              /* events that the ring holds now */
} ZoSimRingState;

typedef struct ZoSimState {      /* 144 bytes */
    uint64_t requests;           /* commands received on \\.\ZoProtector, refused and faulted ones too */
    uint32_t opensSoFar;         /* of \\.\ZoProtector; counted since loading, a reset does not change it */
    uint32_t openNow;            /* likewise */
    uint32_t forceCrashes;       /* force-crash commands: they are counted, nothing crashes */
    uint32_t masterEnabled;      /* the bytes sent last; after a reset 1 */
    uint32_t fileProtectEnabled; /* after a reset 0 */
    uint32_t dllFilterEnabled;   /* after a reset 0 */
    uint32_t signatureMode;      /* after a reset 0 */
    uint32_t signatureMinLevel;  /* after a reset 0 */
    uint32_t faultsPending;      /* scripted faults that have not been used up */
    uint32_t reserved;           /* 0 */
    uint32_t tableCount[ZOSIM_TABLE_COUNT];
    ZoSimRingState rings[ZOSIM_RING_COUNT];
} ZoSimState;

/* ---- The last requests ----------------------------------------------------------------------------------------- */

#define ZOSIM_REQUESTS_KEPT 256u
#define ZOSIM_REQUEST_BYTES 3120u /* the longest record of the interface */

typedef struct ZoSimRequest { /* 3152 bytes */
    uint64_t sequence;        /* the first after loading or reset is 1 */
    uint32_t code;
    uint32_t inLength;               /* as the caller gave them */
    uint32_t outLength;              /* likewise */
    uint32_t status;                 /* NTSTATUS answered */
    uint32_t returned;               /* byte count answered */
    uint32_t pid;                    /* of the sender */
    uint8_t in[ZOSIM_REQUEST_BYTES]; /* the input; zero behind it, cut when longer */
} ZoSimRequest;

typedef struct ZoSimReadRequests { /* 8 bytes */
    uint64_t first;                /* the oldest sequence wanted; 0 or 1 for all that are kept */
} ZoSimReadRequests;

typedef struct ZoSimRequestsReply { /* 16 bytes, followed by as many requests as are kept and fit, oldest first */
    uint64_t newest;                /* sequence of the last request of all; 0 for none */
    uint32_t count;                 /* requests that follow */
    uint32_t reserved;
} ZoSimRequestsReply;

/* ---- The tables ------------------------------------------------------------------------------------------------ */

typedef struct ZoSimReadTable { /* 8 bytes */
    uint32_t table;             /* ZOSIM_TABLE_... */
    uint32_t first;             /* entries to skip */
} ZoSimReadTable;

typedef struct ZoSimTableReply { /* 16 bytes, followed by as many entries as fit */
    uint32_t total;              /* entries in the table */
    uint32_t count;              /* entries that follow */
    uint32_t entrySize;          /* bytes of each: its record, zero-padded to a multiple of 4 */
    uint32_t capacity;           /* of the table */
} ZoSimTableReply;

/* ---- Faults ---------------------------------------------------------------------------------------------------- */

#define ZOSIM_ANY_CODE 0u
#define ZOSIM_FOR_EVER 0xFFFFFFFFu
#define ZOSIM_FAULTS_KEPT 32u /* more are refused with STATUS_QUOTA_EXCEEDED (1816) */

/* What the fault changes; the flags may be combined. */
#define ZOSIM_FAULT_STATUS 0x01u   /* status is answered, and the command is not carried out ... */
#define ZOSIM_FAULT_PERFORM 0x02u  /* ... unless this is set too: then it is carried out first */
#define ZOSIM_FAULT_RETURNED 0x04u /* the byte count answered is returned: short, or (under Wine) over-long */
#define ZOSIM_FAULT_WORDS 0x08u    /* after the command, 32-bit words of the reply are overwritten: those of wordMask */
#define ZOSIM_FAULT_DELAY 0x10u    /* the driver sleeps delayMs first; under Wine all other requests wait too */

/* The faults that fit a command (code, and skip used up) are tried in the order in which they were added, and the first
 * alone is applied. An error status (0xC...) delivers no output and 0 bytes, as the platform has it; a warning such as
 * 0x80000005 (Win32 error 234) with ZOSIM_FAULT_PERFORM fails and delivers the output. A byte count above the output's
 * length reaches the caller as it is, and the bytes delivered do not exceed the buffer: UNDER WINE ONLY. Windows copies
 * as many bytes as the count says, so there an over-long count damages the caller's memory or the system's. */
typedef struct ZoSimFault { /* 48 bytes */
    uint32_t code;          /* ZOP_IOCTL_... or ZOSIM_ANY_CODE */
    uint32_t skip;          /* so many fitting commands pass untouched first */
    uint32_t times;         /* then so many are faulted; ZOSIM_FOR_EVER for all */
    uint32_t flags;         /* ZOSIM_FAULT_... */
    uint32_t status;        /* NTSTATUS */
    uint32_t returned;
    uint32_t delayMs;
    uint32_t wordMask; /* bit 0 for words[0] and so on: in a drain reply count, dropped, position, writerSeq; in a list
                          reply total, returned, truncated, unused */
    uint32_t words[4];
} ZoSimFault;

/* ---- Events ---------------------------------------------------------------------------------------------------- */

/* The simulator's own layout of the events that the library hands on unread. Sequence numbers count from 0 in each
 * ring, wrap at 32 bits, and a lastRead of 0 is the beginning. The path of event n is
 * \Device\HarddiskVolume1\Simulated\event_NNNNNNNN.exe, the key \REGISTRY\MACHINE\SOFTWARE\Simulated\event_NNNNNNNN,
 * with n in eight upper-case hexadecimal digits. The fields are made from n: see the comments. */
#pragma pack(push, 1)
typedef struct ZoSimEvent { /* 562 bytes, a ZopEventRecord */
    uint32_t sequence;      /* n */
    uint32_t kind;          /* 1 process, 2 file; alternating, 1 for even n */
    uint64_t time;          /* system time of production, 100 ns since 1601, UTC */
    uint32_t pid;           /* 1000 + n % 1000 */
    uint32_t threadId;      /* pid + 1 */
    uint32_t blocked;       /* always 0: the simulator observes nothing and blocks nothing */
    uint32_t operation;     /* n % 5 */
    uint32_t pathUnits;     /* without the terminator */
    uint16_t reserved[3];
    uint16_t path[260];
} ZoSimEvent;

typedef struct ZoSimRegistryEvent { /* 1076 bytes, a ZopRegistryEventRecord */
    uint32_t sequence;              /* as above, and so to operation */
    uint32_t kind;                  /* 3 */
    uint64_t time;
    uint32_t pid;
    uint32_t threadId;
    uint32_t blocked;
    uint32_t operation;
    uint32_t keyUnits;
    uint32_t reserved[4];
    uint16_t key[512];
} ZoSimRegistryEvent;
#pragma pack(pop)

typedef struct ZoSimInjection { /* 16 bytes */
    uint32_t ring;              /* ZOSIM_RING_... */
    uint32_t count;             /* events to produce now */
    uint32_t setSequence;       /* not 0: empty the ring and let its sequence go on at nextSequence first */
    uint32_t nextSequence;
} ZoSimInjection;

/* A producer that goes on by itself. Both numbers may be set; zeros end it. The rate's events are made when
 * somebody looks or changes what they go into (a drain, get-stats, and ZOSIM_IOCTL_GET_STATE, _INJECT_EVENTS,
 * _SET_PRODUCER, _SET_COUNTERS and a _SET_SETTINGS with other slots), as many as the elapsed time calls for. */
typedef struct ZoSimProducer { /* 16 bytes */
    uint32_t ring;
    uint32_t perSecond;
    uint32_t perDrain; /* produced before each drain of the ring is answered */
    uint32_t reserved; /* 0 */
} ZoSimProducer;

/* ---- Signatures and counters ----------------------------------------------------------------------------------- */

/* A process whose signature the driver knows. Only processes that were made known here are known: query and refresh of
 * any other answer STATUS_NOT_FOUND. */
typedef struct ZoSimPidSignature { /* 24 bytes */
    uint32_t pid;
    uint32_t first; /* what a query answers; the low bytes are sent */
    uint32_t second;
    uint32_t refreshedFirst; /* what a refresh answers, and queries after it */
    uint32_t refreshedSecond;
    uint32_t forget; /* not 0: the process is unknown again */
} ZoSimPidSignature;

/* The words of the statistics block behind its version. The driver counts by itself; setting replaces the present
 * values, and it goes on counting from there. In layout 2 the block ends behind unsignedBypassAttempts' place, which
 * then means nothing. */
#define ZOSIM_COUNTER_REQUESTS 0u
#define ZOSIM_COUNTER_REFUSED 1u /* answered with an error of the driver's own, not by a fault */
#define ZOSIM_COUNTER_RULES_ADDED 2u
#define ZOSIM_COUNTER_RULES_REMOVED 3u /* one by one; clearing counts all that were there */
#define ZOSIM_COUNTER_EVENTS 4u
#define ZOSIM_COUNTER_EVENTS_DROPPED 5u
#define ZOSIM_COUNTER_REGISTRY_EVENTS 6u
#define ZOSIM_COUNTER_REGISTRY_EVENTS_DROPPED 7u
#define ZOSIM_COUNTER_FILES_COPIED 8u
#define ZOSIM_COUNTER_FILES_REPLACED 9u
#define ZOSIM_COUNTER_UNSIGNED_BYPASS 12u /* only what was set here */
#define ZOSIM_COUNTER_REFRESHES 13u
#define ZOSIM_COUNTERS 18u

#define ZOSIM_STATS_SIZE_LAYOUT_2 56u

typedef struct ZoSimCounters { /* 72 bytes: bytes 4 to 75 of the statistics block */
    uint32_t values[ZOSIM_COUNTERS];
} ZoSimCounters;

#endif
