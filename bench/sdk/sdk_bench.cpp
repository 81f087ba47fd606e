// What the library adds to the requests that it sends: every rule export (rule_exports.cpp), the event drains and the
// rule lists, each beside a bare loop of the platform calls it cannot do without (bare_channel.h).

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bare_channel.h"
#include "installed_driver.h"
#include "layer_calls.h"
#include "paired_run.h"
#include "rule_exports.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace {

using namespace zobench;

constexpr double kFetchTarget = 0.97;
constexpr std::uint32_t kCapacities[] = {1, 64, 1024, 16384};

int PollsOf(std::uint32_t capacity) {
    return capacity <= 64 ? 50 : capacity <= 1024 ? 10 : 4;
}

void PrintRate(const char* name, std::uint32_t capacity, std::uint64_t records, const Times& t) {
    const auto rate = [&](double seconds) { return static_cast<double>(records) / seconds; };
    // Records a second, so the ratio is that of the times turned round.
    std::printf("  %-20s %8u %14.0f %14.0f %12.1f %8.3f%s\n", name, capacity, rate(t.library), rate(t.bare),
                t.library / PollsOf(capacity) * 1e6, 1 / t.ratio, Verdict(1 / t.ratio >= kFetchTarget));
}

struct Ring {
    const char* name;
    decltype(&ZoProtector_DrainEvents) drain;
    std::uint32_t code, recordSize, index, slots;
};

const Ring kRings[] = {
    // as kTables below
    {"events", &ZoProtector_DrainEvents, ZOP_IOCTL_DRAIN_EVENTS, 562, ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE},
    {"registry events", &ZoProtector_DrainRegistryEvents, ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, 1076, ZOSIM_RING_REGISTRY,
     ZOP_REGISTRY_EVENT_RING_SIZE},
};

void CompareDrain(const BareChannel& bare, const Ring& ring, std::uint32_t capacity, std::uint32_t perPoll) {
    std::vector<std::uint8_t> records(std::size_t{capacity} * ring.recordSize);
    std::uint32_t position = 0;
    const int polls = PollsOf(capacity);
    const auto library = [&] {
        return Seconds([&] {
            for (int i = 0; i < polls; ++i) {
                std::uint32_t count = 0, dropped = 0;
                Must(ring.drain(position, records.data(), capacity, &count, &dropped, &position) == ZOP_OK);
                Must(count == perPoll && dropped == 0);
            }
        });
    };
    const auto direct = [&] {
        return Seconds([&] {
            for (int i = 0; i < polls; ++i) {
                const ZopDrainRequest request{position, capacity};
                Must(bare.Fetch(ring.code, &request, sizeof request, 0, ring.recordSize, capacity, records.data(),
                                &position) == perPoll);
            }
        });
    };
    PrintRate(ring.name, capacity, std::uint64_t{perPoll} * static_cast<unsigned>(polls), Compare(library, direct));
}

void CompareDrains(const BareChannel& bare, const zotest::SimulatorClient& simulator) {
    std::printf("\nDraining, against a bare loop that also allocates, zeroes and copies\n");
    std::printf("  target: at least %.2f. The rings hold %u and %u records, so a larger capacity fetches no more.\n\n",
                kFetchTarget, ZOP_EVENT_RING_SIZE, ZOP_REGISTRY_EVENT_RING_SIZE);
    std::printf("  %-20s %8s %14s %14s %12s %8s\n", "ring", "capacity", "library ev/s", "bare ev/s", "us/poll",
                "ratio");
    for (const Ring& ring : kRings) {
        for (const std::uint32_t capacity : kCapacities) {
            const std::uint32_t perPoll = std::min(capacity, ring.slots);
            simulator.SetSequence(ring.index, 0);
            simulator.SetProducer(ring.index, perPoll);
            CompareDrain(bare, ring, capacity, perPoll);
        }
        simulator.SetProducer(ring.index, 0);
    }
}

struct RuleTable {
    const char* name;
    std::int32_t (*list)(void*, std::uint32_t, std::uint32_t*, std::uint32_t*);
    std::uint32_t listCode, entrySize, addCode, addSize, clearCode;
};

const RuleTable kTables[] = {
    // not constexpr: the addresses are those of imports
    {"process rules", &ZoProtector_ListProcessProtectRules, ZOP_IOCTL_LIST_PROCESS_RULES, ZOP_PROCESS_ENTRY_SIZE,
     ZOP_IOCTL_ADD_PROCESS_RULE, sizeof(ZopRuleRecord), ZOP_IOCTL_CLEAR_PROCESS_RULES},
    {"file rules", &ZoProtector_ListFileProtectRules, ZOP_IOCTL_LIST_FILE_RULES, ZOP_FILE_ENTRY_SIZE,
     ZOP_IOCTL_ADD_FILE_RULE, sizeof(ZopFileRuleRecord), ZOP_IOCTL_CLEAR_FILE_RULES},
    {"registry rules", &ZoProtector_ListRegistryProtectRules, ZOP_IOCTL_LIST_REGISTRY_RULES, ZOP_REGISTRY_ENTRY_SIZE,
     ZOP_IOCTL_ADD_REGISTRY_RULE, sizeof(ZopRegistryRuleRecord), ZOP_IOCTL_CLEAR_REGISTRY_RULES},
    {"dll folders", &ZoProtector_ListDllWhitelistRules, ZOP_IOCTL_LIST_DLL_WHITELIST, ZOP_DLL_ENTRY_SIZE,
     ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, sizeof(ZopDllFolderRecord), ZOP_IOCTL_CLEAR_DLL_WHITELIST},
};

// Every add record begins with the name, which is all that a list needs here. False when the table is full.
bool AddRule(const BareChannel& bare, const RuleTable& table, std::uint32_t number) {
    std::uint16_t record[sizeof(ZopFileRuleRecord) / 2 + 1] = {};
    const std::wstring name = L"C:\\Suite\\item" + std::to_wstring(number);
    BareChannel::ConvertPath(name.c_str(), record);
    return bare.Send(table.addCode, record, table.addSize);
}

void CompareLists(const BareChannel& bare) {
    std::printf("\nListing a table that is filled to the capacity, as far as it goes, against the same bare loop\n");
    std::printf("  target: at least %.2f\n\n", kFetchTarget);
    std::printf("  %-20s %8s %14s %14s %12s %8s\n", "table", "capacity", "library ru/s", "bare ru/s", "us/call",
                "ratio");
    for (const RuleTable& table : kTables) {
        Must(bare.Send(table.clearCode, nullptr, 0));
        std::uint32_t rules = 0;
        for (const std::uint32_t capacity : kCapacities) {
            while (rules < capacity && AddRule(bare, table, rules))
                ++rules;
            std::vector<std::uint8_t> entries(std::size_t{capacity} * table.entrySize);
            const int calls = PollsOf(capacity);
            std::uint32_t total = 0;
            const auto library = [&] {
                return Seconds([&] {
                    for (int i = 0; i < calls; ++i) {
                        std::uint32_t count = 0;
                        Must(table.list(entries.data(), capacity, &count, &total) == ZOP_OK && count == rules);
                    }
                });
            };
            const auto direct = [&] {
                return Seconds([&] {
                    for (int i = 0; i < calls; ++i) {
                        Must(bare.Fetch(table.listCode, nullptr, 0, 1, table.entrySize, capacity, entries.data(),
                                        &total) == rules);
                    }
                });
            };
            PrintRate(table.name, capacity, std::uint64_t{rules} * static_cast<unsigned>(calls),
                      Compare(library, direct));
        }
        Must(bare.Send(table.clearCode, nullptr, 0));
    }
}

}  // namespace

// sdk_bench [PAIRS [layer]]: "layer" leaves out all but the C++ layer, which wants many pairs on a busy machine.
int main(int count, char** arguments) {
    if (count > 1) pairsOfARun = std::max(1, std::atoi(arguments[1]));
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    const zotest::InstalledDriver driver;
    {
        const zotest::SimulatorClient simulator;
        const BareChannel bare(folder / "bare.log");
        Must(ZoProtector_Initialize() == ZOP_OK);
        if (count < 3) {
            CompareRuleExports(bare);
            CompareDrains(bare, simulator);
            CompareLists(bare);
        }
        CompareLayer();
    }
    ZoProtector_Uninitialize();
    return 0;
}
