#include "driver_tables.h"

#include "format.h"
#include "hex.h"
#include "table_entries.h"
#include "zoprotector.h"

namespace zoctl {

std::int32_t ReadTable(Table table, TableContents& contents) {
    TableEntries entries;
    const std::int32_t status = ReadEntries(table, entries);
    contents.total = entries.total;
    if (status < 0) return status;
    for (std::uint32_t i = 0; i < entries.count; ++i) {
        if (auto rule = DecodeEntry(table, entries.Entry(i))) {
            contents.rules.push_back(std::move(*rule));
        } else {
            contents.unknown.push_back(zo::ToHex(entries.Entry(i)));
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

Ended LoadDriverState(Output& out, DriverState& state) {
    std::string what;
    const std::int32_t status = ReadDriverState(state, what);
    if (status >= 0) return std::nullopt;
    return out.Fail(status, Subject::kAny, what);
}

}  // namespace zoctl
