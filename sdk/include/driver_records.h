#ifndef ZOP_DRIVER_RECORDS_H
#define ZOP_DRIVER_RECORDS_H

/* The language between the library and the protection driver: every control code and the layout of every record.
 *
 * One header for both sides, and for authors of drivers. It is plain C and needs neither windows.h nor the driver
 * kit. Records are packed, little-endian and zero-filled before their fields are set; strings in them are UTF-16,
 * zero-terminated inside their field. uint16_t stands for a UTF-16 unit here so that the layout is the same everywhere.
 * Paths are NT paths (\Device\HarddiskVolume3\...), or Win32 ones where the caller's had no drive letter; key names
 * begin with \REGISTRY\. */

#include <stdint.h>

#define ZOP_DEVICE_TYPE 0x8000u

/* CTL_CODE(ZOP_DEVICE_TYPE, function, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS) */
#define ZOP_IOCTL(function) ((ZOP_DEVICE_TYPE << 16) + 0xC000u + 4u * (function))

/* Process rules */
#define ZOP_IOCTL_ADD_PROCESS_RULE ZOP_IOCTL(0x001u)    /* in ZopRuleRecord */
#define ZOP_IOCTL_REMOVE_PROCESS_RULE ZOP_IOCTL(0x002u) /* in ZopPathRecord */
#define ZOP_IOCTL_CLEAR_PROCESS_RULES ZOP_IOCTL(0x003u)
#define ZOP_IOCTL_LIST_PROCESS_RULES ZOP_IOCTL(0x004u) /* out list reply, entries of ZOP_PROCESS_ENTRY_SIZE */

/* File rules */
#define ZOP_IOCTL_ADD_FILE_RULE ZOP_IOCTL(0x011u)    /* in ZopFileRuleRecord */
#define ZOP_IOCTL_REMOVE_FILE_RULE ZOP_IOCTL(0x012u) /* in ZopPathRecord */
#define ZOP_IOCTL_CLEAR_FILE_RULES ZOP_IOCTL(0x013u)
#define ZOP_IOCTL_ENABLE_FILE_PROTECT ZOP_IOCTL(0x014u)        /* in ZopToggleRecord */
#define ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS ZOP_IOCTL(0x015u)    /* in ZopRuleRecord */
#define ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS ZOP_IOCTL(0x016u) /* in ZopPathRecord */
#define ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES ZOP_IOCTL(0x017u)
#define ZOP_IOCTL_LIST_FILE_RULES ZOP_IOCTL(0x018u) /* out list reply, entries of ZOP_FILE_ENTRY_SIZE */

/* Registry rules */
#define ZOP_IOCTL_ADD_REGISTRY_RULE ZOP_IOCTL(0x021u)    /* in ZopRegistryRuleRecord */
#define ZOP_IOCTL_REMOVE_REGISTRY_RULE ZOP_IOCTL(0x022u) /* in ZopRegistryKeyRecord */
#define ZOP_IOCTL_CLEAR_REGISTRY_RULES ZOP_IOCTL(0x023u)
#define ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS ZOP_IOCTL(0x024u)    /* in ZopRuleRecord */
#define ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS ZOP_IOCTL(0x025u) /* in ZopPathRecord */
#define ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES ZOP_IOCTL(0x026u)
#define ZOP_IOCTL_DRAIN_REGISTRY_EVENTS ZOP_IOCTL(0x027u) /* in ZopDrainRequest, out drain reply */
#define ZOP_IOCTL_LIST_REGISTRY_RULES ZOP_IOCTL(0x028u)   /* out list reply, entries of ZOP_REGISTRY_ENTRY_SIZE */

/* DLL load filter */
#define ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER ZOP_IOCTL(0x031u)      /* in ZopToggleRecord */
#define ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER ZOP_IOCTL(0x032u)    /* in ZopDllFolderRecord */
#define ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER ZOP_IOCTL(0x033u) /* in ZopPathRecord */
#define ZOP_IOCTL_CLEAR_DLL_WHITELIST ZOP_IOCTL(0x034u)
#define ZOP_IOCTL_LIST_DLL_WHITELIST ZOP_IOCTL(0x035u) /* out list reply, entries of ZOP_DLL_ENTRY_SIZE */

/* File operations that the driver performs for the library */
#define ZOP_IOCTL_COPY_DIRECTORY ZOP_IOCTL(0x040u) /* in ZoProtectorCopyDirectoryRequest, out ...Result */
#define ZOP_IOCTL_REPLACE_FILE ZOP_IOCTL(0x041u)   /* in ZoProtectorReplaceFileRequest */

/* Driver control, signatures, diagnostics */
#define ZOP_IOCTL_GET_STATUS ZOP_IOCTL(0x0F0u)                /* out ZopStatusReply */
#define ZOP_IOCTL_GET_VERSION ZOP_IOCTL(0x0F1u)               /* out ZopVersionReply */
#define ZOP_IOCTL_GET_STATS ZOP_IOCTL(0x0F2u)                 /* out ZopStats of zoprotector.h, ZOP_STATS_SIZE bytes */
#define ZOP_IOCTL_DRAIN_EVENTS ZOP_IOCTL(0x0F3u)              /* in ZopDrainRequest, out drain reply */
#define ZOP_IOCTL_QUERY_PID_SIGNATURE ZOP_IOCTL(0x0F4u)       /* in ZopPidRecord, out ZopSignatureReply */
#define ZOP_IOCTL_GET_SIGNATURE_POLICY ZOP_IOCTL(0x0F5u)      /* out ZopSignaturePolicy of zoprotector.h */
#define ZOP_IOCTL_SET_SIGNATURE_POLICY ZOP_IOCTL(0x0F6u)      /* in ZopSignaturePolicy */
#define ZOP_IOCTL_REFRESH_PID_SIGNATURE ZOP_IOCTL(0x0F7u)     /* in ZopPidRecord, out ZopSignatureReply */
#define ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE ZOP_IOCTL(0x0F8u)    /* in ZopPidRecord */
#define ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE ZOP_IOCTL(0x0F9u) /* in ZopPidRecord */
#define ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES ZOP_IOCTL(0x0FAu)
#define ZOP_IOCTL_SET_MASTER_ENABLED ZOP_IOCTL(0x0FBu) /* in ZopToggleRecord */
#define ZOP_IOCTL_GET_MASTER_ENABLED ZOP_IOCTL(0x0FCu) /* out ZopToggleRecord */
#define ZOP_IOCTL_FORCE_CRASH ZOP_IOCTL(0x0FDu)

/* Field lengths in UTF-16 units, the terminator included */
#define ZOP_PATH_UNITS 520
#define ZOP_KEY_UNITS 512
#define ZOP_FILTER_UNITS 128

/* Sizes of what follows the header of a list or drain reply. An entry is its add record, zero-padded to a multiple
 * of 4. */
#define ZOP_PROCESS_ENTRY_SIZE 1044u
#define ZOP_FILE_ENTRY_SIZE 2344u
#define ZOP_REGISTRY_ENTRY_SIZE 1028u
#define ZOP_DLL_ENTRY_SIZE 1044u
#define ZOP_EVENT_RECORD_SIZE 562u
#define ZOP_REGISTRY_EVENT_RECORD_SIZE 1076u

#define ZOP_STATS_SIZE 76u

#pragma pack(push, 1)

typedef struct ZopPathRecord { /* 1040 bytes */
    uint16_t path[ZOP_PATH_UNITS];
} ZopPathRecord;

typedef struct ZopRuleRecord { /* 1042 bytes: process rules and both ignore-process lists */
    uint16_t path[ZOP_PATH_UNITS];
    uint8_t isFolder;  /* 1: the path is a folder whose contents the rule covers */
    uint8_t recursive; /* non-zero: sub-folders too */
} ZopRuleRecord;

typedef struct ZopFileRuleRecord { /* 2341 bytes */
    uint16_t path[ZOP_PATH_UNITS];
    uint8_t isFolder;
    uint8_t recursive;
    uint16_t filter[ZOP_FILTER_UNITS];  /* file-name pattern; empty for none */
    uint16_t scopePath[ZOP_PATH_UNITS]; /* empty for an unscoped rule */
    uint8_t scopeIsFolder;
    uint8_t scopeRecursive;
    uint8_t exclusive;
} ZopFileRuleRecord;

typedef struct ZopRegistryKeyRecord { /* 1024 bytes */
    uint16_t key[ZOP_KEY_UNITS];
} ZopRegistryKeyRecord;

typedef struct ZopRegistryRuleRecord { /* 1025 bytes */
    uint16_t key[ZOP_KEY_UNITS];
    uint8_t recursive;
} ZopRegistryRuleRecord;

typedef struct ZopDllFolderRecord { /* 1041 bytes */
    uint16_t path[ZOP_PATH_UNITS];
    uint8_t recursive;
} ZopDllFolderRecord;

typedef struct ZopToggleRecord { /* 1 byte */
    uint8_t state;
} ZopToggleRecord;

typedef struct ZopPidRecord { /* 8 bytes */
    uint32_t pid;
    uint32_t reserved;
} ZopPidRecord;

typedef struct ZopSignatureReply { /* 8 bytes */
    uint8_t first;
    uint8_t second;
    uint8_t reserved[6];
} ZopSignatureReply;

typedef struct ZopVersionReply { /* 12 bytes */
    uint32_t major;
    uint32_t minor;
    uint32_t patch;
} ZopVersionReply;

typedef struct ZopStatusPair { /* 5 bytes, the count unaligned */
    uint8_t flag;
    uint32_t count;
} ZopStatusPair;

typedef struct ZopStatusReply { /* 20 bytes */
    ZopStatusPair pairs[4];
} ZopStatusReply;

typedef struct ZopDrainRequest { /* 8 bytes */
    uint32_t lastRead;           /* the caller's read position */
    uint32_t capacity;           /* how many records the reply buffer holds */
} ZopDrainRequest;

/* The 16 bytes at the start of every drain and list reply; the records follow. */
typedef struct ZopDrainReplyHeader {
    uint32_t count;     /* records that follow */
    uint32_t dropped;   /* events overwritten before they were read */
    uint32_t position;  /* lastRead of the next poll */
    uint32_t writerSeq; /* where the driver writes next */
} ZopDrainReplyHeader;

typedef struct ZopListReplyHeader {
    uint32_t total;     /* rules in the driver's table */
    uint32_t returned;  /* entries that follow */
    uint32_t truncated; /* rules that did not fit */
    uint32_t unused;
} ZopListReplyHeader;

typedef struct ZoProtectorCopyDirectoryRequest { /* 2084 bytes */
    uint16_t sourceDir[ZOP_PATH_UNITS];
    uint16_t destinationDir[ZOP_PATH_UNITS];
    uint8_t option1;
    uint8_t option2;
    uint8_t reserved[2];
} ZoProtectorCopyDirectoryRequest;

typedef struct ZoProtectorCopyDirectoryResult { /* 16 bytes */
    uint32_t filesCopied;
    uint32_t dirsCopied;
    uint32_t skipped;
    uint32_t reserved;
} ZoProtectorCopyDirectoryResult;

typedef struct ZoProtectorReplaceFileRequest { /* 3120 bytes */
    uint16_t targetPath[ZOP_PATH_UNITS];
    uint16_t sourcePath[ZOP_PATH_UNITS];
    uint16_t stagingPath[ZOP_PATH_UNITS]; /* where the driver moves the old target first; on the target's volume */
} ZoProtectorReplaceFileRequest;

#pragma pack(pop)

#endif
