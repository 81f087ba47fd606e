#include "table_entries.h"

#include <array>

#include "driver_records.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct ListExport {
    std::int32_t (*list)(void*, std::uint32_t, std::uint32_t*, std::uint32_t*);
    std::uint32_t entrySize;
};

// In the order of Table.
const std::array<ListExport, kTables> kListExports = {{
    {ZoProtector_ListProcessProtectRules, ZOP_PROCESS_ENTRY_SIZE},
    {ZoProtector_ListFileProtectRules, ZOP_FILE_ENTRY_SIZE},
    {ZoProtector_ListRegistryProtectRules, ZOP_REGISTRY_ENTRY_SIZE},
    {ZoProtector_ListDllWhitelistRules, ZOP_DLL_ENTRY_SIZE},
}};

}  // namespace

std::int32_t ReadEntries(Table table, TableEntries& entries) {
    const ListExport& from = kListExports[Index(table)];
    entries.entrySize = from.entrySize;
    constexpr std::uint32_t kFirstCapacity = 64;
    constexpr int kTries = 8;
    std::uint32_t capacity = kFirstCapacity;
    for (int i = 0; i < kTries; ++i) {
        entries.bytes.assign(std::size_t{capacity} * from.entrySize, 0);
        const std::int32_t status = from.list(entries.bytes.data(), capacity, &entries.count, &entries.total);
        if (status < 0) return status;
        if (entries.total <= capacity) break;
        // Some room to spare, for a table that is being filled. An implausible total is not trusted.
        constexpr std::uint32_t kMost = 1u << 20;
        if (entries.total > kMost) return ZOP_E_FAILED;
        capacity = entries.total + kFirstCapacity;
    }
    return entries.count < entries.total ? ZOP_E_FAILED : ZOP_OK;
}

}  // namespace zoctl
