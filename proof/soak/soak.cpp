// soak [--rounds N] [--path NAME]: goes along each of the library's main paths N times (10000) and prints how many
// handles, heap blocks and threads the process has before and after. The exit status is 1 when one of them has grown,
// or when a path stops giving what it should.

#include <windows.h>

#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "fault_scenarios.h"
#include "format.h"
#include "owned_handles.h"
#include "process_counts.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace zoproof {
namespace {

// Blocks that the platform keeps now and then; a leak is one block a round or more.
constexpr std::size_t kSpareBlocks = 60;

unsigned ThreadCount() {
    const zo::OwnedFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    unsigned count = 0;
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more; more = Thread32Next(snapshot.Get(), &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    return count;
}

struct Counts {
    std::size_t handles = zotest::OpenHandleCount();
    std::size_t blocks = zotest::BusyHeapBlocks();
    unsigned threads = ThreadCount();
};

// What is wrong after one round, or "".
std::string GoOnce(const Scenario& scenario) {
    try {
        scenario.prepare();
    } catch (const std::exception& error) {
        return error.what();
    }
    const std::string status = zo::Format("{:08X}", static_cast<std::uint32_t>(scenario.run()));
    const std::string left = scenario.check();
    return status == scenario.good ? left : "gives " + status;
}

// False when something has grown or gone wrong.
bool Soak(const Scenario& scenario, unsigned rounds) {
    constexpr unsigned kWarmUp = 20;  // the platform keeps things from the first calls of some of its functions
    for (unsigned i = 0; i < kWarmUp; ++i)
        static_cast<void>(GoOnce(scenario));
    const Counts before;
    std::string wrong;
    unsigned round = 0;
    for (; round < rounds && wrong.empty(); ++round)
        wrong = GoOnce(scenario);
    const Counts after;
    const bool flat = after.handles <= before.handles && after.threads <= before.threads &&
                      after.blocks <= before.blocks + kSpareBlocks;
    std::printf("%-24s %7u rounds   handles %4u %4u   heap blocks %6u %6u   threads %2u %2u   %s%s\n", scenario.name,
                round, static_cast<unsigned>(before.handles), static_cast<unsigned>(after.handles),
                static_cast<unsigned>(before.blocks), static_cast<unsigned>(after.blocks), before.threads,
                after.threads, flat ? "flat " : "GROWS ", wrong.c_str());
    std::fflush(stdout);
    return flat && wrong.empty();
}

int Run(unsigned rounds, const char* only) {
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    bool good = true;
    for (const auto& scenarios :
         {DriverScenarios(folder.Path()), SignerScenarios(folder.Path()), ReporterScenarios(folder.Path())}) {
        for (const Scenario& scenario : scenarios) {
            if (only == nullptr || std::strstr(scenario.name, only) != nullptr) good = Soak(scenario, rounds) && good;
        }
    }
    ZoProtector_UninstallDriver();
    return good ? 0 : 1;
}

}  // namespace
}  // namespace zoproof

int main(int count, char** arguments) {
    unsigned rounds = 10000;
    const char* path = nullptr;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string_view name = arguments[i];
        if (name == "--rounds") rounds = static_cast<unsigned>(std::strtoul(arguments[i + 1], nullptr, 10));
        if (name == "--path") path = arguments[i + 1];
    }
    try {
        return zoproof::Run(rounds, path);
    } catch (const std::exception& error) {
        std::printf("soak: %s\n", error.what());
        return 1;
    }
}
