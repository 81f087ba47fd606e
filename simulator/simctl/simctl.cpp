// simctl: the simulator's control device from the command line, for demonstrations and for tests written as scripts.
// Exit codes: 0 done, 1 the driver refused, 2 usage, 3 no simulator is running.

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "owned_handles.h"
#include "zoprotector_simulator.h"

namespace {

constexpr char kUsage[] =
    "simctl state                          how many requests came, and what the tables and rings hold\n"
    "simctl reset                          everything as right after loading\n"
    "simctl inject COUNT [registry]        make COUNT events now\n"
    "simctl version MAJOR MINOR PATCH      what the driver claims to be\n"
    "simctl fail CODE STATUS [TIMES]       the next commands of this control code answer this NTSTATUS\n";

constexpr const char* kTables[ZOSIM_TABLE_COUNT] = {"process rules",       "file rules",     "registry rules",
                                                    "DLL folders",         "file ignores",   "registry ignores",
                                                    "signature overrides", "known processes"};
constexpr const char* kRings[ZOSIM_RING_COUNT] = {"events", "registry events"};

enum Exit : int { kDone = 0, kRefused = 1, kUsageError = 2, kNoSimulator = 3 };

class Simulator {
  public:
    Simulator()
        : device_(CreateFileW(ZOSIM_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr)) {}

    [[nodiscard]] bool IsThere() const { return static_cast<bool>(device_); }

    [[nodiscard]] int Tell(std::uint32_t code) const { return Send(code, nullptr, 0, nullptr, 0); }
    template <typename Record>
    [[nodiscard]] int Set(std::uint32_t code, Record record) const {
        return Send(code, &record, sizeof(record), nullptr, 0);
    }
    template <typename Record>
    [[nodiscard]] int Get(std::uint32_t code, Record& record) const {
        return Send(code, nullptr, 0, &record, sizeof(record));
    }

  private:
    [[nodiscard]] int Send(std::uint32_t code, void* in, DWORD inLength, void* out, DWORD outLength) const {
        DWORD returned = 0;
        if (DeviceIoControl(device_.Get(), code, in, inLength, out, outLength, &returned, nullptr)) return kDone;
        std::fprintf(stderr, "simctl: the simulator refused, error %lu\n", GetLastError());
        return kRefused;
    }

    zo::OwnedFile device_;
};

int ShowState(const Simulator& simulator) {
    ZoSimState state{};
    if (const int exit = simulator.Get(ZOSIM_IOCTL_GET_STATE, state); exit != kDone) return exit;
    std::printf("%-20s %llu\n", "requests", static_cast<unsigned long long>(state.requests));
    for (std::size_t i = 0; i < std::size(kTables); ++i)
        std::printf("%-20s %u\n", kTables[i], state.tableCount[i]);
    for (std::size_t i = 0; i < std::size(kRings); ++i) {
        const ZoSimRingState& ring = state.rings[i];
        std::printf("%-20s %u kept of %llu\n", kRings[i], ring.kept, static_cast<unsigned long long>(ring.produced));
    }
    return kDone;
}

int SetVersion(const Simulator& simulator, std::span<const std::uint32_t> numbers) {
    ZoSimSettings settings{};
    if (const int exit = simulator.Get(ZOSIM_IOCTL_GET_SETTINGS, settings); exit != kDone) return exit;
    std::copy(numbers.begin(), numbers.end(), settings.version);
    return simulator.Set(ZOSIM_IOCTL_SET_SETTINGS, settings);
}

// Decimal or 0x...; anything behind the digits makes the whole no number.
std::optional<std::uint32_t> ParseNumber(const char* text) {
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 0);
    if (end == text || *end != '\0' || value > UINT32_MAX) return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

int Run(const Simulator& simulator, std::string_view command, std::span<const std::uint32_t> numbers, bool registry) {
    const std::size_t count = numbers.size();
    if (command == "state" && count == 0) return ShowState(simulator);
    if (command == "reset" && count == 0) return simulator.Tell(ZOSIM_IOCTL_RESET);
    if (command == "version" && count == 3) return SetVersion(simulator, numbers);
    if (command == "inject" && count == 1) {
        ZoSimInjection injection{};
        injection.ring = registry ? ZOSIM_RING_REGISTRY : ZOSIM_RING_EVENTS;
        injection.count = numbers[0];
        return simulator.Set(ZOSIM_IOCTL_INJECT_EVENTS, injection);
    }
    if (command == "fail" && (count == 2 || count == 3)) {
        ZoSimFault fault{};
        fault.code = numbers[0];
        fault.status = numbers[1];
        fault.times = count == 3 ? numbers[2] : 1;
        fault.flags = ZOSIM_FAULT_STATUS;
        return simulator.Set(ZOSIM_IOCTL_ADD_FAULT, fault);
    }
    std::fputs(kUsage, stderr);
    return kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::uint32_t> numbers;
    bool registry = false;
    bool understood = argc >= 2;
    for (int i = 2; i < argc; ++i) {
        if (const std::optional<std::uint32_t> number = ParseNumber(argv[i])) {
            numbers.push_back(*number);
        } else {
            registry = std::string_view(argv[i]) == "registry";
            understood = understood && registry;
        }
    }
    if (!understood) {
        std::fputs(kUsage, stderr);
        return kUsageError;
    }
    const Simulator simulator;
    if (!simulator.IsThere()) {
        std::fputs("simctl: no simulator is running\n", stderr);
        return kNoSimulator;
    }
    return Run(simulator, argv[1], numbers, registry);
}
