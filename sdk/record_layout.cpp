// The layouts that leave the library: the records of driver_records.h, which the driver checks by their length, and the
// public structures, which callers have compiled in. Any change of one of these numbers breaks the other side.

#include <cstddef>

#include "driver_records.h"
#include "ring_reply.h"
#include "zoprotector.h"

namespace {

template <std::size_t actual, std::size_t expected>
constexpr bool kIs = actual == expected;

#define ZOP_SIZE(type, size) static_assert(kIs<sizeof(type), size>, #type)
#define ZOP_OFFSET(type, field, offset) static_assert(kIs<offsetof(type, field), offset>, #type "." #field)

// Records

ZOP_SIZE(ZopPathRecord, 1040);
ZOP_OFFSET(ZopPathRecord, path, 0);

ZOP_SIZE(ZopRuleRecord, 1042);
ZOP_OFFSET(ZopRuleRecord, path, 0);
ZOP_OFFSET(ZopRuleRecord, isFolder, 1040);
ZOP_OFFSET(ZopRuleRecord, recursive, 1041);

ZOP_SIZE(ZopFileRuleRecord, 2341);
ZOP_OFFSET(ZopFileRuleRecord, path, 0);
ZOP_OFFSET(ZopFileRuleRecord, isFolder, 1040);
ZOP_OFFSET(ZopFileRuleRecord, recursive, 1041);
ZOP_OFFSET(ZopFileRuleRecord, filter, 1042);
ZOP_OFFSET(ZopFileRuleRecord, scopePath, 1298);
ZOP_OFFSET(ZopFileRuleRecord, scopeIsFolder, 2338);
ZOP_OFFSET(ZopFileRuleRecord, scopeRecursive, 2339);
ZOP_OFFSET(ZopFileRuleRecord, exclusive, 2340);

ZOP_SIZE(ZopRegistryKeyRecord, 1024);
ZOP_SIZE(ZopRegistryRuleRecord, 1025);
ZOP_OFFSET(ZopRegistryRuleRecord, recursive, 1024);

ZOP_SIZE(ZopDllFolderRecord, 1041);
ZOP_OFFSET(ZopDllFolderRecord, recursive, 1040);

ZOP_SIZE(ZopToggleRecord, 1);

ZOP_SIZE(ZopPidRecord, 8);
ZOP_OFFSET(ZopPidRecord, reserved, 4);

ZOP_SIZE(ZopSignatureReply, 8);
ZOP_OFFSET(ZopSignatureReply, first, 0);
ZOP_OFFSET(ZopSignatureReply, second, 1);
ZOP_OFFSET(ZopSignatureReply, reserved, 2);

ZOP_SIZE(ZopVersionReply, 12);
ZOP_OFFSET(ZopVersionReply, minor, 4);
ZOP_OFFSET(ZopVersionReply, patch, 8);

ZOP_SIZE(ZopStatusReply, 20);
ZOP_OFFSET(ZopStatusReply, pairs, 0);
ZOP_SIZE(ZopStatusPair, 5);
ZOP_OFFSET(ZopStatusPair, count, 1);

ZOP_SIZE(ZopDrainRequest, 8);
ZOP_OFFSET(ZopDrainRequest, capacity, 4);

ZOP_SIZE(ZopDrainReplyHeader, zop::kReplyHeaderSize);
ZOP_OFFSET(ZopDrainReplyHeader, dropped, 4);
ZOP_OFFSET(ZopDrainReplyHeader, position, 8);
ZOP_OFFSET(ZopDrainReplyHeader, writerSeq, 12);

ZOP_SIZE(ZopListReplyHeader, zop::kReplyHeaderSize);
ZOP_OFFSET(ZopListReplyHeader, returned, 4);
ZOP_OFFSET(ZopListReplyHeader, truncated, 8);
ZOP_OFFSET(ZopListReplyHeader, unused, 12);

ZOP_SIZE(ZoProtectorCopyDirectoryRequest, 2084);
ZOP_OFFSET(ZoProtectorCopyDirectoryRequest, destinationDir, 1040);
ZOP_OFFSET(ZoProtectorCopyDirectoryRequest, option1, 2080);
ZOP_OFFSET(ZoProtectorCopyDirectoryRequest, option2, 2081);

ZOP_SIZE(ZoProtectorCopyDirectoryResult, 16);
ZOP_OFFSET(ZoProtectorCopyDirectoryResult, dirsCopied, 4);
ZOP_OFFSET(ZoProtectorCopyDirectoryResult, skipped, 8);

ZOP_SIZE(ZoProtectorReplaceFileRequest, 3120);
ZOP_OFFSET(ZoProtectorReplaceFileRequest, sourcePath, 1040);
ZOP_OFFSET(ZoProtectorReplaceFileRequest, stagingPath, 2080);

// Public structures

ZOP_SIZE(ZopStatus, 32);
ZOP_OFFSET(ZopStatus, flag1, 0);
ZOP_OFFSET(ZopStatus, count1, 4);
ZOP_OFFSET(ZopStatus, flag2, 8);
ZOP_OFFSET(ZopStatus, count2, 12);
ZOP_OFFSET(ZopStatus, flag3, 16);
ZOP_OFFSET(ZopStatus, count3, 20);
ZOP_OFFSET(ZopStatus, flag4, 24);
ZOP_OFFSET(ZopStatus, count4, 28);

ZOP_SIZE(ZopSignaturePolicy, 8);
ZOP_OFFSET(ZopSignaturePolicy, mode, 0);
ZOP_OFFSET(ZopSignaturePolicy, minLevel, 1);
ZOP_OFFSET(ZopSignaturePolicy, reserved, 2);

ZOP_SIZE(ZopStats, ZOP_STATS_SIZE);
ZOP_OFFSET(ZopStats, counters, 4);
ZOP_OFFSET(ZopStats, unsignedBypassAttempts, 52);
ZOP_OFFSET(ZopStats, moreCounters, 56);

ZOP_SIZE(ZopEventRecord, ZOP_EVENT_RECORD_SIZE);
ZOP_SIZE(ZopRegistryEventRecord, ZOP_REGISTRY_EVENT_RECORD_SIZE);
ZOP_SIZE(ZopProcessRuleEntry, ZOP_PROCESS_ENTRY_SIZE);
ZOP_SIZE(ZopFileRuleEntry, ZOP_FILE_ENTRY_SIZE);
ZOP_SIZE(ZopRegistryRuleEntry, ZOP_REGISTRY_ENTRY_SIZE);
ZOP_SIZE(ZopDllWhitelistEntry, ZOP_DLL_ENTRY_SIZE);

ZOP_SIZE(ZoProtectorDriverStatus, 1200);
ZOP_OFFSET(ZoProtectorDriverStatus, startType, 4);
ZOP_OFFSET(ZoProtectorDriverStatus, processId, 8);
ZOP_OFFSET(ZoProtectorDriverStatus, instanceRegistered, 12);
ZOP_OFFSET(ZoProtectorDriverStatus, imagePath, 16);
ZOP_OFFSET(ZoProtectorDriverStatus, altitude, 1056);
ZOP_OFFSET(ZoProtectorDriverStatus, fileVersionMajor, 1184);
ZOP_OFFSET(ZoProtectorDriverStatus, fileVersionRevision, 1196);

// An entry of a rule list is its add record, rounded up to a multiple of four bytes.
template <typename Record>
constexpr std::size_t kEntrySize = (sizeof(Record) + 3) / 4 * 4;
static_assert(kEntrySize<ZopRuleRecord> == ZOP_PROCESS_ENTRY_SIZE);
static_assert(kEntrySize<ZopFileRuleRecord> == ZOP_FILE_ENTRY_SIZE);
static_assert(kEntrySize<ZopRegistryRuleRecord> == ZOP_REGISTRY_ENTRY_SIZE);
static_assert(kEntrySize<ZopDllFolderRecord> == ZOP_DLL_ENTRY_SIZE);

// The codes: device type, access for reading and writing, buffered.
static_assert(ZOP_IOCTL_ADD_PROCESS_RULE == 0x8000C004u && ZOP_IOCTL_FORCE_CRASH == 0x8000C3F4u);

}  // namespace
