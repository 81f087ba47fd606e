#include "driver_tables.h"

#include "driver_records.h"
#include "format.h"
#include "hex.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct ListExport {
    std::int32_t (*list)(void*, std::uint32_t, std::uint32_t*, std::uint32_t*);
    std::uint32_t entrySize;
};

ListExport ExportOf(Table table) {
    switch (table) {
        case Table::kProcess:
            return {ZoProtector_ListProcessProtectRules, ZOP_PROCESS_ENTRY_SIZE};
        case Table::kFile:
            return {ZoProtector_ListFileProtectRules, ZOP_FILE_ENTRY_SIZE};
        case Table::kRegistry:
            return {ZoProtector_ListRegistryProtectRules, ZOP_REGISTRY_ENTRY_SIZE};
        case Table::kDll:
            return {ZoProtector_ListDllWhitelistRules, ZOP_DLL_ENTRY_SIZE};
    }
    return {};
}

}  // namespace

std::int32_t ReadTable(Table table, TableContents& contents) {
    const ListExport from = ExportOf(table);
    constexpr std::uint32_t kFirstCapacity = 64;
    constexpr int kTries = 8;
    std::uint32_t capacity = kFirstCapacity;
    std::uint32_t count = 0;
    std::vector<std::uint8_t> entries;
    for (int i = 0; i < kTries; ++i) {
        entries.assign(std::size_t{capacity} * from.entrySize, 0);
        const std::int32_t status = from.list(entries.data(), capacity, &count, &contents.total);
        if (status < 0) return status;
        if (contents.total <= capacity) break;
        // Some room beside, for a table that is being filled. A total beyond all reason is not believed.
        constexpr std::uint32_t kMost = 1u << 20;
        if (contents.total > kMost) return ZOP_E_FAILED;
        capacity = contents.total + kFirstCapacity;
    }
    if (count < contents.total) return ZOP_E_FAILED;
    contents.rules.clear();
    contents.unknown.clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::span<const std::uint8_t> entry(entries.data() + std::size_t{i} * from.entrySize, from.entrySize);
        if (auto rule = DecodeEntry(table, entry)) {
            contents.rules.push_back(std::move(*rule));
        } else {
            contents.unknown.push_back(zo::ToHex(entry));
        }
    }
    return ZOP_OK;
}

std::int32_t ReadDriverState(DriverState& state, std::string& what) {
    for (const Table table : kAllTables) {
        what = zo::Format("read the {} table", TableName(table));
        TableContents contents;
        if (const std::int32_t status = ReadTable(table, contents); status < 0) return status;
        if (!contents.unknown.empty()) return ZOP_E_VERSION_MISMATCH;
        state.tables[Index(table)] = std::move(contents.rules);
    }
    what = "read the master switch";
    std::uint32_t enabled = 0;
    if (const std::int32_t status = ZoProtector_GetMasterEnabled(&enabled); status < 0) return status;
    state.masterEnabled = enabled != 0;
    what = "read the signature policy";
    ZopSignaturePolicy policy{};
    if (const std::int32_t status = ZoProtector_GetSignaturePolicy(&policy); status < 0) return status;
    state.policy = {policy.mode, policy.minLevel};
    return ZOP_OK;
}

}  // namespace zoctl
