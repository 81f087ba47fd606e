// The commands that change what the driver claims to be, how much it holds, and what it produces.

#include <algorithm>

#include "command.h"
#include "failure.h"
#include "format.h"
#include "names.h"
#include "simulator_client.h"

namespace simctl {

namespace {

Answer Reset() {
    zosim::SimulatorClient().Reset();
    return {"The simulator is as right after loading."};
}

struct VersionOptions {
    std::uint32_t major = 0, minor = 0, patch = 0;
};

Answer SetVersion(const VersionOptions& options) {
    zosim::SimulatorClient().ChangeSettings([&](ZoSimSettings& settings) {
        settings.version[0] = options.major;
        settings.version[1] = options.minor;
        settings.version[2] = options.patch;
    });
    return {zo::Format("The driver reports version {}.{}.{}.", options.major, options.minor, options.patch)};
}

struct CapacityOptions {
    std::uint32_t table = 0, entries = 0;
};

Answer SetCapacity(const CapacityOptions& options) {
    zosim::SimulatorClient().ChangeSettings(
        [&](ZoSimSettings& settings) { settings.tableCapacity[options.table] = options.entries; });
    return {zo::Format("The {} table holds at most {} entries.", kTables.TextOf(options.table), options.entries)};
}

struct SlotOptions {
    std::uint32_t ring = 0, slots = 0;
};

Answer SetSlots(const SlotOptions& options) {
    zosim::SimulatorClient().ChangeSettings(
        [&](ZoSimSettings& settings) { settings.ringSlots[options.ring] = options.slots; });
    return {zo::Format("The {} ring keeps {} events and is empty now.", kRings.TextOf(options.ring), options.slots)};
}

struct ResumeOptions {
    std::uint32_t place = 0;
};

Answer SetResume(const ResumeOptions& options) {
    zosim::SimulatorClient().ChangeSettings(
        [&](ZoSimSettings& settings) { settings.resumeAfterOverrun = options.place; });
    return {zo::Format("After a loss a reader resumes at the {} event.", kResumes.TextOf(options.place))};
}

struct StopOptions {
    std::string whether;
};

Answer SetStop(const StopOptions& options) {
    const bool refuse = options.whether == "refuse";
    zosim::SimulatorClient().ChangeSettings([&](ZoSimSettings& settings) { settings.refuseStop = refuse ? 1 : 0; });
    return {refuse ? "The driver refuses to be stopped." : "The driver can be stopped."};
}

struct LayoutOptions {
    std::uint32_t layout = 3;
};

Answer SetLayout(const LayoutOptions& options) {
    zosim::SimulatorClient().ChangeSettings([&](ZoSimSettings& settings) { settings.statsVersion = options.layout; });
    return {zo::Format("get-stats answers layout {}.", options.layout)};
}

struct StatusReplyOptions {
    std::vector<std::uint32_t> numbers;
    bool own = false;
};

Answer SetStatusReply(const StatusReplyOptions& options) {
    if (options.own != options.numbers.empty()) {
        throw Failure{kUsage, "give four pairs of flag and count, or --own alone"};
    }
    zosim::SimulatorClient().ChangeSettings([&](ZoSimSettings& settings) {
        settings.useStatusReply = options.own ? 0 : 1;
        for (std::size_t i = 0; i < options.numbers.size(); ++i)
            (i % 2 == 0 ? settings.statusFlag : settings.statusCount)[i / 2] = options.numbers[i];
    });
    return {options.own ? "get-status answers from the driver's own state." : "get-status answers these pairs."};
}

struct InjectOptions {
    std::uint32_t count = 0, ring = ZOSIM_RING_EVENTS;
    std::optional<std::uint32_t> sequence;
};

Answer Inject(const InjectOptions& options) {
    ZoSimInjection injection{};
    injection.ring = options.ring;
    injection.count = options.count;
    injection.setSequence = options.sequence.has_value();
    injection.nextSequence = options.sequence.value_or(0);
    zosim::SimulatorClient().Set(ZOSIM_IOCTL_INJECT_EVENTS, injection);
    return {zo::Format("{} event(s) produced in the {} ring.", options.count, kRings.TextOf(options.ring))};
}

struct ProduceOptions {
    std::uint32_t ring = 0, rate = 0, perDrain = 0;
    bool stop = false;
};

Answer Produce(const ProduceOptions& options) {
    if (options.stop == (options.rate != 0 || options.perDrain != 0)) {
        throw Failure{kUsage, "give --rate or --per-drain with a number above 0, or --stop alone"};
    }
    zosim::SimulatorClient().Set(ZOSIM_IOCTL_SET_PRODUCER,
                                 ZoSimProducer{options.ring, options.rate, options.perDrain, 0});
    const std::string ring = kRings.TextOf(options.ring);
    if (options.stop) return {zo::Format("The {} ring's producer has stopped.", ring)};
    return {zo::Format("The {} ring gets {} event(s) a second and {} before each drain.", ring, options.rate,
                       options.perDrain)};
}

struct SignatureOptions {
    ZoSimPidSignature known{};
    std::vector<std::uint32_t> verdict, refreshed;
    bool forget = false;
};

Answer SetSignature(const SignatureOptions& options) {
    if (options.forget != options.verdict.empty()) {
        throw Failure{kUsage, "give the two numbers of the verdict, or --forget alone"};
    }
    ZoSimPidSignature known = options.known;
    known.forget = options.forget;
    if (!options.forget) {
        const std::vector<std::uint32_t>& refreshed = options.refreshed.empty() ? options.verdict : options.refreshed;
        known.first = options.verdict[0];
        known.second = options.verdict[1];
        known.refreshedFirst = refreshed[0];
        known.refreshedSecond = refreshed[1];
    }
    zosim::SimulatorClient().Set(ZOSIM_IOCTL_SET_PID_SIGNATURE, known);
    return {zo::Format("Process {} is {}.", known.pid, options.forget ? "unknown again" : "known")};
}

struct CounterOptions {
    std::vector<std::string> assignments;
};

Answer SetCounters(const CounterOptions& options) {
    ZoSimCounters counters{};
    for (const std::string& assignment : options.assignments) {
        const std::size_t sign = assignment.find('=');
        const auto word = kCounters.Find(assignment.substr(0, sign));
        const auto value = ParseNumber(sign == std::string::npos ? "" : assignment.substr(sign + 1));
        if (!word || *word >= ZOSIM_COUNTERS || !value) {
            throw Failure{kUsage,
                          zo::Format("'{}' is not COUNTER=VALUE; \"simctl names\" lists the counters", assignment)};
        }
        counters.values[*word] = *value;
    }
    zosim::SimulatorClient().Set(ZOSIM_IOCTL_SET_COUNTERS, counters);
    return {zo::Format("{} counter(s) set, all others are 0.", options.assignments.size())};
}

void AddLimits(Tool& tool) {
    tool.Add<CapacityOptions>(
        "capacity", "Set how many entries a table holds; one more is refused with quota-exceeded",
        "capacity file 2\ncapacity process 65536",
        [](CLI::App& command, CapacityOptions& options) {
            command.add_option("TABLE", options.table, "The table's name")->required()->transform(Named(kTables));
            command.add_option("ENTRIES", options.entries, "At most 65536, not fewer than the table holds now")
                ->required();
        },
        SetCapacity);
    tool.Add<SlotOptions>(
        "slots", "Set how many events a ring keeps, and empty it", "slots events 16",
        [](CLI::App& command, SlotOptions& options) {
            command.add_option("RING", options.ring, "events or registry")->required()->transform(Named(kRings));
            command.add_option("SLOTS", options.slots, "From 1 to 1024 (events) or 512 (registry)")->required();
        },
        SetSlots);
    tool.Add<ResumeOptions>(
        "resume", "Set where a reader resumes whose events were overwritten", "resume newest",
        [](CLI::App& command, ResumeOptions& options) {
            command
                .add_option("PLACE", options.place, "oldest (the first event still kept) or newest (after the last)")
                ->required()
                ->transform(Named(kResumes));
        },
        SetResume);
}

void AddAnswers(Tool& tool) {
    tool.Add<VersionOptions>(
        "version", "Set the version that the driver reports", "version 1 4 0\nversion 2 0 0",
        [](CLI::App& command, VersionOptions& options) {
            command.add_option("MAJOR", options.major, "The library accepts major version 1 only")->required();
            command.add_option("MINOR", options.minor, "")->required();
            command.add_option("PATCH", options.patch, "")->required();
        },
        SetVersion);
    tool.Add<StopOptions>(
        "stop", "Set whether the driver can be stopped", "stop refuse\nstop allow",
        [](CLI::App& command, StopOptions& options) {
            command.add_option("WHETHER", options.whether, "refuse (stopping the service fails) or allow")
                ->required()
                ->check(CLI::IsMember({"refuse", "allow"}));
        },
        SetStop);
    tool.Add<LayoutOptions>(
        "layout", "Set the layout of the counters that get-stats answers", "layout 2",
        [](CLI::App& command, LayoutOptions& options) {
            command.add_option("LAYOUT", options.layout, "3 (76 bytes) or 2 (56 bytes, an older driver's)")->required();
        },
        SetLayout);
    tool.Add<StatusReplyOptions>(
        "status-reply", "Set the four pairs that get-status answers",
        "status-reply 1 10 1 20 0 0 1 5\nstatus-reply --own",
        [](CLI::App& command, StatusReplyOptions& options) {
            command.add_option("PAIRS", options.numbers, "Four flags (0 to 255), each followed by its count")
                ->expected(8);
            command.add_flag("--own", options.own, "Answer from the driver's own state again");
        },
        SetStatusReply);
}

void AddEvents(Tool& tool) {
    tool.Add<InjectOptions>(
        "inject", "Produce events now", "inject 3\ninject 10 registry\ninject 5 --sequence 0xFFFFFFFE",
        [](CLI::App& command, InjectOptions& options) {
            command.add_option("COUNT", options.count, "How many")->required();
            command.add_option("RING", options.ring, "events (default) or registry")->transform(Named(kRings));
            command.add_option("--sequence", options.sequence, "Empty the ring first and number events from here");
        },
        Inject);
    tool.Add<ProduceOptions>(
        "produce", "Have events produced until stopped",
        "produce events --rate 100\nproduce registry --per-drain 7\nproduce events --stop",
        [](CLI::App& command, ProduceOptions& options) {
            command.add_option("RING", options.ring, "events or registry")->required()->transform(Named(kRings));
            command.add_option("--rate", options.rate, "Events a second");
            command.add_option("--per-drain", options.perDrain, "Events before each drain of the ring");
            command.add_flag("--stop", options.stop, "Stop producing");
        },
        Produce);
}

}  // namespace

void AddChangeCommands(Tool& tool) {
    tool.Add("reset", "Set everything back to how it is right after loading; open handles stay open", "reset", Reset);
    AddLimits(tool);
    AddAnswers(tool);
    AddEvents(tool);
    tool.Add<SignatureOptions>(
        "signature", "Make a process's signature known to the driver",
        "signature 4242 1 3\nsignature 4242 1 3 --refreshed 0 0\nsignature 4242 --forget",
        [](CLI::App& command, SignatureOptions& options) {
            command.add_option("PID", options.known.pid, "The process")->required();
            command.add_option("VERDICT", options.verdict, "The two numbers that a query answers, each from 0 to 255")
                ->expected(2);
            command.add_option("--refreshed", options.refreshed, "What a refresh answers (default: the same)")
                ->expected(2);
            command.add_flag("--forget", options.forget, "Make the process unknown");
        },
        SetSignature);
    tool.Add<CounterOptions>(
        "counters", "Set the driver's counters, which go on from there; those not named become 0",
        "counters requests=100 events-dropped=7\ncounters 12=1",
        [](CLI::App& command, CounterOptions& options) {
            command.add_option("ASSIGNMENTS", options.assignments, "COUNTER=VALUE, by name or by number from 0 to 17")
                ->required();
        },
        SetCounters);
}

}  // namespace simctl
