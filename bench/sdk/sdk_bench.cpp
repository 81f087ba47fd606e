// What the library adds to the requests that it sends: every kind of rule export, the event drains and the rule lists,
// each beside a bare loop of the platform calls it cannot do without (bare_channel.h). Export and bare loop alternate
// in one run; a ratio is the median over the pairs, so that a busy machine hurts both alike.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bare_channel.h"
#include "installed_driver.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace {

using sdkbench::BareChannel;

int pairsOfARun = 41;
constexpr int kCallsOfABatch = 25;

double Seconds(const std::function<void()>& work) {
    LARGE_INTEGER frequency, begin, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    work();
    QueryPerformanceCounter(&end);
    return static_cast<double>(end.QuadPart - begin.QuadPart) / static_cast<double>(frequency.QuadPart);
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

struct Times {
    double library;
    double bare;
    double ratio;
};

// Both orders alike often: what comes second may find warmer caches.
Times Compare(const std::function<double()>& library, const std::function<double()>& bare) {
    std::vector<double> libraryTimes, bareTimes, ratios;
    for (int pair = 0; pair < pairsOfARun; ++pair) {
        const bool libraryFirst = pair % 2 == 0;
        double l = libraryFirst ? library() : 0;
        const double b = bare();
        if (!libraryFirst) l = library();
        libraryTimes.push_back(l);
        bareTimes.push_back(b);
        ratios.push_back(l / b);
    }
    return {Median(libraryTimes), Median(bareTimes), Median(ratios)};
}

void Must(bool done) {
    if (!done) {
        std::fprintf(stderr, "a request failed\n");
        std::exit(1);
    }
}

const std::vector<std::wstring>& Names(const wchar_t* prefix) {
    static std::vector<std::pair<std::wstring, std::vector<std::wstring>>> all;
    for (const auto& entry : all) {
        if (entry.first == prefix) return entry.second;
    }
    std::vector<std::wstring> names;
    for (int i = 0; i < kCallsOfABatch; ++i)
        names.push_back(prefix + std::to_wstring(i));
    return all.emplace_back(prefix, names).second;
}

struct Case {
    const char* name;
    std::function<void(const wchar_t*)> library;
    std::function<void(const wchar_t*)> bare;
    const wchar_t* prefix;                        // of the names that the calls of a batch use
    std::uint32_t clearCode;                      // empties the table before each batch; 0 for none
    std::function<void(const wchar_t*)> prepare;  // for each name, before each batch
};

std::vector<Case> Cases(const BareChannel& bare) {
    const auto addProcess = [&](const wchar_t* name) {
        ZopRuleRecord r{};
        BareChannel::ConvertPath(name, r.path);
        Must(bare.SendAndLog(ZOP_IOCTL_ADD_PROCESS_RULE, &r, sizeof r, "AddProcessProtectByPath: Added '%s'\r\n", name,
                             0));
    };
    const auto none = [](const wchar_t*) {};
    return {
        {"AddProcessProtectByPath", [](auto n) { Must(ZoProtector_AddProcessProtectByPath(n) == ZOP_OK); }, addProcess,
         L"C:\\Program Files\\Suite\\tool", ZOP_IOCTL_CLEAR_PROCESS_RULES, none},
        {"AddProcessProtectByFolder", [](auto n) { Must(ZoProtector_AddProcessProtectByFolder(n, 1) == ZOP_OK); },
         [&](auto n) {
             ZopRuleRecord r{};
             BareChannel::ConvertPath(n, r.path);
             r.isFolder = r.recursive = 1;
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_PROCESS_RULE, &r, sizeof r,
                                  "AddProcessProtectByFolder: Added '%s' (Recursive=%d)\r\n", n, 1));
         },
         L"C:\\Program Files\\Suite\\folder", ZOP_IOCTL_CLEAR_PROCESS_RULES, none},
        {"RemoveProcessProtect", [](auto n) { Must(ZoProtector_RemoveProcessProtect(n) == ZOP_OK); },
         [&](auto n) {
             ZopPathRecord r{};
             BareChannel::ConvertPath(n, r.path);
             Must(bare.SendAndLog(ZOP_IOCTL_REMOVE_PROCESS_RULE, &r, sizeof r, "RemoveProcessProtect: Removed '%s'\r\n",
                                  n, 0));
         },
         L"C:\\Program Files\\Suite\\tool", ZOP_IOCTL_CLEAR_PROCESS_RULES, addProcess},
        {"ClearAllProcessProtect", [](auto) { Must(ZoProtector_ClearAllProcessProtect() == ZOP_OK); },
         [&](auto) {
             Must(bare.SendAndLog(ZOP_IOCTL_CLEAR_PROCESS_RULES, nullptr, 0, "ClearAllProcessProtect: Cleared\r\n",
                                  nullptr, 0));
         },
         L"", 0, none},
        {"AddFileProtectByFolder", [](auto n) { Must(ZoProtector_AddFileProtectByFolder(n, 1, L"*.exe") == ZOP_OK); },
         [&](auto n) {
             ZopFileRuleRecord r{};
             BareChannel::ConvertPath(n, r.path);
             r.isFolder = r.recursive = 1;
             std::memcpy(r.filter, L"*.exe", 10);
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_FILE_RULE, &r, sizeof r,
                                  "AddFileProtectByFolder: Added '%s' Filter='*.exe'\r\n", n, 0));
         },
         L"C:\\Program Files\\Suite\\folder", ZOP_IOCTL_CLEAR_FILE_RULES, none},
        {"AddFileProtectScoped",
         [](auto n) {
             Must(ZoProtector_AddFileProtectScoped(n, 1, 1, L"*.exe", L"C:\\Windows\\scope.exe", 0, 0, 1) == ZOP_OK);
         },
         [&](auto n) {
             ZopFileRuleRecord r{};
             BareChannel::ConvertPath(n, r.path);
             BareChannel::ConvertPath(L"C:\\Windows\\scope.exe", r.scopePath);
             r.isFolder = r.recursive = r.exclusive = 1;
             std::memcpy(r.filter, L"*.exe", 10);
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_FILE_RULE, &r, sizeof r,
                                  "AddFileProtectScoped: '%s' Filter='*.exe' Scope='C:\\Windows\\scope.exe' "
                                  "Exclusive=%d\r\n",
                                  n, 1));
         },
         L"C:\\Program Files\\Suite\\folder", ZOP_IOCTL_CLEAR_FILE_RULES, none},
        {"EnableFileProtect", [](auto) { Must(ZoProtector_EnableFileProtect(1) == ZOP_OK); },
         [&](auto) {
             const ZopToggleRecord r{1};
             Must(bare.SendAndLog(ZOP_IOCTL_ENABLE_FILE_PROTECT, &r, sizeof r, "EnableFileProtect: Enabled\r\n",
                                  nullptr, 0));
         },
         L"", 0, none},
        {"AddFileIgnoreProcess", [](auto n) { Must(ZoProtector_AddFileIgnoreProcess(n, 0, 0) == ZOP_OK); },
         [&](auto n) {
             ZopRuleRecord r{};
             BareChannel::ConvertPath(n, r.path);
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, &r, sizeof r,
                                  "AddFileIgnoreProcess: Added '%s' (Folder=0, Recursive=%d)\r\n", n, 0));
         },
         L"C:\\Program Files\\Suite\\tool", ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, none},
        {"AddRegistryProtectByKey (HKLM)", [](auto n) { Must(ZoProtector_AddRegistryProtectByKey(n, 1) == ZOP_OK); },
         [&](auto n) {
             ZopRegistryRuleRecord r{};
             BareChannel::ConvertMachineKey(n, r.key);
             r.recursive = 1;
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_REGISTRY_RULE, &r, sizeof r,
                                  "AddRegistryProtectByKey: Added '%s' (Recursive=%d)\r\n", n, 1));
         },
         L"HKLM\\SOFTWARE\\Suite\\key", ZOP_IOCTL_CLEAR_REGISTRY_RULES, none},
        {"AddRegistryProtectByKey (HKCU)", [](auto n) { Must(ZoProtector_AddRegistryProtectByKey(n, 1) == ZOP_OK); },
         [&](auto n) {
             ZopRegistryRuleRecord r{};
             BareChannel::ConvertUserKey(n, r.key);
             r.recursive = 1;
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_REGISTRY_RULE, &r, sizeof r,
                                  "AddRegistryProtectByKey: Added '%s' (Recursive=%d)\r\n", n, 1));
         },
         L"HKCU\\SOFTWARE\\Suite\\key", ZOP_IOCTL_CLEAR_REGISTRY_RULES, none},
        {"AddDllWhitelistFolder", [](auto n) { Must(ZoProtector_AddDllWhitelistFolder(n, 1) == ZOP_OK); },
         [&](auto n) {
             ZopDllFolderRecord r{};
             BareChannel::ConvertPath(n, r.path);
             r.recursive = 1;
             Must(bare.SendAndLog(ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER, &r, sizeof r,
                                  "AddDllWhitelistFolder: Added '%s' (Recursive=%d)\r\n", n, 1));
         },
         L"C:\\Program Files\\Suite\\folder", ZOP_IOCTL_CLEAR_DLL_WHITELIST, none},
        {"SetSignaturePolicy",
         [](auto) {
             const ZopSignaturePolicy p = {1, 2, {}};
             Must(ZoProtector_SetSignaturePolicy(&p) == ZOP_OK);
         },
         [&](auto) {
             const ZopSignaturePolicy p = {1, 2, {}};
             Must(bare.SendAndLog(ZOP_IOCTL_SET_SIGNATURE_POLICY, &p, sizeof p,
                                  "SetSignaturePolicy: Mode=1%s MinLevel=%d\r\n", nullptr, 2));
         },
         L"", 0, none},
    };
}

void CompareRules(const BareChannel& bare) {
    std::printf("Rule exports, against a bare request after the same conversion, log write and debugger output\n");
    std::printf("  target: at most 1.05; %d pairs of %d calls\n\n", pairsOfARun, kCallsOfABatch);
    std::printf("  %-32s %12s %12s %8s\n", "export", "library us", "bare us", "ratio");
    for (const Case& c : Cases(bare)) {
        const auto batch = [&](const std::function<void(const wchar_t*)>& call) {
            if (c.clearCode != 0) Must(bare.Send(c.clearCode, nullptr, 0));
            for (const std::wstring& name : Names(c.prefix))
                c.prepare(name.c_str());
            return Seconds([&] {
                for (const std::wstring& name : Names(c.prefix))
                    call(name.c_str());
            });
        };
        const Times t = Compare([&] { return batch(c.library); }, [&] { return batch(c.bare); });
        std::printf("  %-32s %12.1f %12.1f %8.3f\n", c.name, t.library / kCallsOfABatch * 1e6,
                    t.bare / kCallsOfABatch * 1e6, t.ratio);
    }
}

constexpr std::uint32_t kCapacities[] = {1, 64, 1024, 16384};

int PollsOf(std::uint32_t capacity) {
    return capacity <= 64 ? 50 : capacity <= 1024 ? 10 : 4;
}

void PrintRate(const char* name, std::uint32_t capacity, std::uint64_t records, const Times& t) {
    const auto rate = [&](double seconds) { return static_cast<double>(records) / seconds; };
    // Records a second, so the ratio is that of the times turned round.
    std::printf("  %-20s %8u %14.0f %14.0f %12.1f %8.3f\n", name, capacity, rate(t.library), rate(t.bare),
                t.library / PollsOf(capacity) * 1e6, 1 / t.ratio);
}

void CompareDrains(const BareChannel& bare, const zotest::SimulatorClient& simulator) {
    std::printf("\nDraining, against a bare loop that also allocates, zeroes and copies\n");
    std::printf("  target: at least 0.97. The rings hold %u and %u records, so a larger capacity fetches no more.\n\n",
                ZOP_EVENT_RING_SIZE, ZOP_REGISTRY_EVENT_RING_SIZE);
    std::printf("  %-20s %8s %14s %14s %12s %8s\n", "ring", "capacity", "library ev/s", "bare ev/s", "us/poll",
                "ratio");
    const struct {
        const char* name;
        decltype(&ZoProtector_DrainEvents) drain;
        std::uint32_t code, recordSize, ring, slots;
    } rings[] = {
        {"events", &ZoProtector_DrainEvents, ZOP_IOCTL_DRAIN_EVENTS, 562, ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE},
        {"registry events", &ZoProtector_DrainRegistryEvents, ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, 1076,
         ZOSIM_RING_REGISTRY, ZOP_REGISTRY_EVENT_RING_SIZE},
    };
    for (const auto& ring : rings) {
        for (const std::uint32_t capacity : kCapacities) {
            const std::uint32_t perPoll = std::min(capacity, ring.slots);
            simulator.SetSequence(ring.ring, 0);
            simulator.SetProducer(ring.ring, perPoll);
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
                        Must(bare.Fetch(ring.code, &request, sizeof request, 0, ring.recordSize, capacity,
                                        records.data(), &position) == perPoll);
                    }
                });
            };
            const Times t = Compare(library, direct);
            PrintRate(ring.name, capacity, std::uint64_t{perPoll} * static_cast<unsigned>(polls), t);
        }
        simulator.SetProducer(ring.ring, 0);
    }
}

void CompareLists(const BareChannel& bare) {
    constexpr std::uint32_t kMostRules = 1024;  // what the simulator's table holds
    std::printf("\nListing a table of as many rules, at most %u, against the same bare loop\n", kMostRules);
    std::printf("  target: at least 0.97\n\n");
    std::printf("  %-20s %8s %14s %14s %12s %8s\n", "table", "capacity", "library ru/s", "bare ru/s", "us/call",
                "ratio");
    Must(bare.Send(ZOP_IOCTL_CLEAR_PROCESS_RULES, nullptr, 0));
    std::uint32_t rules = 0;
    for (const std::uint32_t capacity : kCapacities) {
        for (; rules < std::min(capacity, kMostRules); ++rules) {
            ZopRuleRecord r{};
            BareChannel::ConvertPath((L"C:\\Suite\\tool" + std::to_wstring(rules)).c_str(), r.path);
            Must(bare.Send(ZOP_IOCTL_ADD_PROCESS_RULE, &r, sizeof r));
        }
        std::vector<std::uint8_t> entries(std::size_t{capacity} * ZOP_PROCESS_ENTRY_SIZE);
        const int calls = PollsOf(capacity);
        std::uint32_t total = 0;
        const auto library = [&] {
            return Seconds([&] {
                for (int i = 0; i < calls; ++i) {
                    std::uint32_t count = 0;
                    Must(ZoProtector_ListProcessProtectRules(entries.data(), capacity, &count, &total) == ZOP_OK);
                    Must(count == rules);
                }
            });
        };
        const auto direct = [&] {
            return Seconds([&] {
                for (int i = 0; i < calls; ++i) {
                    Must(bare.Fetch(ZOP_IOCTL_LIST_PROCESS_RULES, nullptr, 0, 1, ZOP_PROCESS_ENTRY_SIZE, capacity,
                                    entries.data(), &total) == rules);
                }
            });
        };
        PrintRate("process rules", capacity, std::uint64_t{rules} * static_cast<unsigned>(calls),
                  Compare(library, direct));
    }
}

}  // namespace

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
        CompareRules(bare);
        CompareDrains(bare, simulator);
        CompareLists(bare);
    }
    ZoProtector_Uninitialize();
    return 0;
}
