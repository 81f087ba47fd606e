// The commands that show something: state, settings, requests, table, names.

#include <algorithm>
#include <cstring>
#include <utility>

#include "command.h"
#include "driver_records.h"
#include "failure.h"
#include "format.h"
#include "names.h"
#include "simulator_client.h"
#include "text.h"

namespace simctl {

namespace {

std::string Hex(std::uint32_t value) {
    return zo::Format("0x{:08X}", value);
}

template <std::size_t N>
std::string TextOf(const std::uint16_t (&field)[N]) {
    return zo::Utf8FromWide(zosim::FieldText(field));
}

Answer ShowState() {
    const zosim::SimulatorClient simulator;
    const ZoSimState state = simulator.State();
    const ZoSimSettings settings = simulator.Settings();
    Json facts = {{"requests", state.requests},
                  {"opensSoFar", state.opensSoFar},
                  {"openNow", state.openNow},
                  {"forceCrashes", state.forceCrashes},
                  {"masterEnabled", state.masterEnabled},
                  {"fileProtectEnabled", state.fileProtectEnabled},
                  {"dllFilterEnabled", state.dllFilterEnabled},
                  {"signatureMode", state.signatureMode},
                  {"signatureMinLevel", state.signatureMinLevel},
                  {"faultsPending", state.faultsPending}};
    for (const Name& table : kTables.names) {
        facts["tables"].push_back({{"table", table.text},
                                   {"entries", state.tableCount[table.value]},
                                   {"capacity", settings.tableCapacity[table.value]}});
    }
    for (const Name& name : kRings.names) {
        const ZoSimRingState& ring = state.rings[name.value];
        facts["rings"].push_back({{"ring", name.text},
                                  {"kept", ring.kept},
                                  {"slots", settings.ringSlots[name.value]},
                                  {"produced", ring.produced},
                                  {"handedOut", ring.handedOut},
                                  {"dropped", ring.dropped},
                                  {"nextSequence", ring.writerSeq}});
    }
    return {{}, facts};
}

Answer ShowSettings() {
    const ZoSimSettings settings = zosim::SimulatorClient().Settings();
    const auto& version = settings.version;
    Json facts = {{"version", zo::Format("{}.{}.{}", version[0], version[1], version[2])},
                  {"statsLayout", settings.statsVersion},
                  {"resume", kResumes.TextOf(settings.resumeAfterOverrun)},
                  {"ownStatusReply", settings.useStatusReply == 0},
                  {"refusesStop", settings.refuseStop != 0}};
    for (const Name& table : kTables.names)
        facts["tables"].push_back({{"table", table.text}, {"capacity", settings.tableCapacity[table.value]}});
    for (const Name& ring : kRings.names)
        facts["rings"].push_back({{"ring", ring.text}, {"slots", settings.ringSlots[ring.value]}});
    if (settings.useStatusReply == 0) return {{}, facts};
    for (std::size_t pair = 0; pair < std::size(settings.statusFlag); ++pair) {
        facts["statusPairs"].push_back(
            {{"pair", pair + 1}, {"flag", settings.statusFlag[pair] & 0xFFu}, {"count", settings.statusCount[pair]}});
    }
    return {{}, facts};
}

struct RequestOptions {
    std::uint64_t from = 0;
    std::size_t last = ZOSIM_REQUESTS_KEPT;
    bool bytes = false;
};

std::string InputOf(const ZoSimRequest& request) {
    std::string text;
    for (std::size_t i = 0; i < std::min<std::size_t>(request.inLength, ZOSIM_REQUEST_BYTES); ++i)
        text += zo::Format("{:02x}", request.in[i]);
    return text;
}

Answer ShowRequests(const RequestOptions& options) {
    std::vector<ZoSimRequest> requests = zosim::SimulatorClient().Requests(options.from);
    if (requests.size() > options.last) {
        requests.erase(requests.begin(), requests.end() - static_cast<std::ptrdiff_t>(options.last));
    }
    Json facts = {{"requests", Json::array()}};
    for (const ZoSimRequest& request : requests) {
        Json row = {{"sequence", request.sequence}, {"pid", request.pid},
                    {"inLength", request.inLength}, {"outLength", request.outLength},
                    {"returned", request.returned}, {"status", Hex(request.status)},
                    {"code", Hex(request.code)},    {"command", kCommands.TextOf(request.code)}};
        if (options.bytes) row["input"] = InputOf(request);
        facts["requests"].push_back(row);
    }
    return {{}, facts};
}

template <typename Record>
Record RecordAt(const std::uint8_t* bytes) {
    Record record;
    std::memcpy(&record, bytes, sizeof(record));
    return record;
}

Json FileRuleFacts(const ZopFileRuleRecord& rule) {
    return {{"folder", rule.isFolder},           {"recursive", rule.recursive},
            {"exclusive", rule.exclusive},       {"filter", TextOf(rule.filter)},
            {"scopeFolder", rule.scopeIsFolder}, {"scopeRecursive", rule.scopeRecursive},
            {"scope", TextOf(rule.scopePath)},   {"path", TextOf(rule.path)}};
}

// One entry of the table as the driver keeps it; flags are shown as the bytes that were sent.
Json EntryFacts(std::uint32_t table, const std::uint8_t* entry) {
    switch (table) {
        case ZOSIM_TABLE_FILE:
            return FileRuleFacts(RecordAt<ZopFileRuleRecord>(entry));
        case ZOSIM_TABLE_REGISTRY: {
            const auto rule = RecordAt<ZopRegistryRuleRecord>(entry);
            return {{"recursive", rule.recursive}, {"key", TextOf(rule.key)}};
        }
        case ZOSIM_TABLE_DLL: {
            const auto folder = RecordAt<ZopDllFolderRecord>(entry);
            return {{"recursive", folder.recursive}, {"path", TextOf(folder.path)}};
        }
        case ZOSIM_TABLE_OVERRIDE:
            return {{"pid", RecordAt<ZopPidRecord>(entry).pid}};
        case ZOSIM_TABLE_PID: {
            const auto known = RecordAt<ZoSimPidSignature>(entry);
            return {{"pid", known.pid},
                    {"first", known.first},
                    {"second", known.second},
                    {"refreshedFirst", known.refreshedFirst},
                    {"refreshedSecond", known.refreshedSecond}};
        }
        default: {
            const auto rule = RecordAt<ZopRuleRecord>(entry);
            return {{"folder", rule.isFolder}, {"recursive", rule.recursive}, {"path", TextOf(rule.path)}};
        }
    }
}

struct TableOptions {
    std::uint32_t table = 0;
};

Answer ShowTable(const TableOptions& options) {
    ZoSimTableReply header{};
    const std::vector<std::uint8_t> bytes = zosim::SimulatorClient().TableBytes(options.table, header);
    Json facts = {{"total", header.total}, {"capacity", header.capacity}, {"entries", Json::array()}};
    for (std::size_t at = 0; at < bytes.size(); at += header.entrySize)
        facts["entries"].push_back(EntryFacts(options.table, bytes.data() + at));
    return {{}, facts};
}

Answer ShowNames() {
    constexpr std::pair<const char*, const Vocabulary*> kLists[] = {{"tables", &kTables},
                                                                    {"rings", &kRings},
                                                                    {"commands", &kCommands},
                                                                    {"statuses", &kStatuses},
                                                                    {"counters", &kCounters}};
    Json facts = Json::object();
    for (const auto& [list, vocabulary] : kLists) {
        for (const Name& name : vocabulary->names) {
            facts[list].push_back({{std::string(vocabulary->kind), name.text},
                                   {"number", name.value > 0xFFFF ? Json(Hex(name.value)) : Json(name.value)}});
        }
    }
    return {{}, facts};
}

}  // namespace

void AddShowCommands(Tool& tool) {
    tool.Add("state", "Show what the driver has received and holds: requests, switches, tables and rings",
             "state\nstate --json", ShowState);
    tool.Add("settings", "Show what can be set: version, layouts, table capacities, ring sizes", "settings",
             ShowSettings);
    tool.Add<RequestOptions>(
        "requests", "Show the last requests that reached the driver, at most 256",
        "requests --last 5\nrequests --last 1 --bytes",
        [](CLI::App& command, RequestOptions& options) {
            command.add_option("--from", options.from, "Leave out requests before this sequence number");
            command.add_option("--last", options.last, "Show at most this many, the newest");
            command.add_flag("--bytes", options.bytes, "Show each request's input in hexadecimal");
        },
        ShowRequests);
    tool.Add<TableOptions>(
        "table", "Show the entries of a table as the driver keeps them", "table file\ntable known-process --json",
        [](CLI::App& command, TableOptions& options) {
            command.add_option("TABLE", options.table, "The table's name")->required()->transform(Named(kTables));
        },
        ShowTable);
    tool.Add("names", "List the names that other commands take", "names\nnames --json", ShowNames);
}

}  // namespace simctl
