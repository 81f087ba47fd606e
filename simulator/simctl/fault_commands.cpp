// The commands that make the driver misbehave.

#include "command.h"
#include "failure.h"
#include "format.h"
#include "names.h"
#include "simulator_client.h"

namespace simctl {

namespace {

struct FailOptions {
    std::uint32_t code = 0, status = 0, times = 1;
};

struct FaultOptions {
    std::uint32_t code = 0, skip = 0, times = 1;
    std::optional<std::uint32_t> status, returned, delayMs;
    bool perform = false, always = false;
    std::vector<std::string> words;
};

void AddFault(const ZoSimFault& fault) {
    if (fault.times == 0) throw Failure{kUsage, "--times 0 would never apply"};
    zosim::SimulatorClient().AddFault(fault);
}

std::string TimesText(const ZoSimFault& fault) {
    const std::string which = fault.code == ZOSIM_ANY_CODE ? "driver command" : kCommands.TextOf(fault.code);
    if (fault.times == ZOSIM_FOR_EVER) return zo::Format("Every {}", which);
    return fault.times == 1 ? zo::Format("One {}", which) : zo::Format("The next {} of {}", fault.times, which);
}

Answer Fail(const FailOptions& options) {
    ZoSimFault fault{};
    fault.code = options.code;
    fault.times = options.times;
    fault.flags = ZOSIM_FAULT_STATUS;
    fault.status = options.status;
    AddFault(fault);
    return {zo::Format("{} will answer {} and not be carried out.", TimesText(fault), kStatuses.TextOf(fault.status))};
}

// INDEX=VALUE into the fault's words.
void SetWord(ZoSimFault& fault, const std::string& assignment) {
    const std::size_t sign = assignment.find('=');
    const auto index = ParseNumber(assignment.substr(0, sign));
    const auto value = ParseNumber(sign == std::string::npos ? "" : assignment.substr(sign + 1));
    if (!index || *index >= std::size(fault.words) || !value) {
        throw Failure{kUsage, zo::Format("'{}' is not INDEX=VALUE with an index from 0 to 3", assignment)};
    }
    fault.words[*index] = *value;
    fault.wordMask |= 1u << *index;
}

Answer Fault(const FaultOptions& options) {
    ZoSimFault fault{};
    fault.code = options.code;
    fault.skip = options.skip;
    fault.times = options.always ? ZOSIM_FOR_EVER : options.times;
    fault.status = options.status.value_or(0);
    fault.returned = options.returned.value_or(0);
    fault.delayMs = options.delayMs.value_or(0);
    for (const std::string& word : options.words)
        SetWord(fault, word);
    if (options.status) fault.flags |= ZOSIM_FAULT_STATUS;
    if (options.perform) fault.flags |= ZOSIM_FAULT_PERFORM;
    if (options.returned) fault.flags |= ZOSIM_FAULT_RETURNED;
    if (options.delayMs) fault.flags |= ZOSIM_FAULT_DELAY;
    if (fault.wordMask != 0) fault.flags |= ZOSIM_FAULT_WORDS;
    if ((fault.flags & ~ZOSIM_FAULT_PERFORM) == 0) {
        throw Failure{kUsage, "give at least one of --status, --returned, --word, --delay"};
    }
    AddFault(fault);
    const std::string after = fault.skip == 0 ? "" : zo::Format(", after {} that are answered as usual", fault.skip);
    return {zo::Format("{} will be faulted{}.", TimesText(fault), after)};
}

Answer ClearFaults() {
    zosim::SimulatorClient().ClearFaults();
    return {"No fault is pending."};
}

void DeclareFault(CLI::App& command, FaultOptions& options) {
    command.add_option("COMMAND", options.code, "A driver command's name or code, or any")
        ->required()
        ->transform(Named(kCommands));
    command.add_option("--status", options.status, "Answer this status and do not carry the command out")
        ->transform(Named(kStatuses));
    command.add_flag("--perform", options.perform, "With --status: carry the command out first");
    command.add_option("--returned", options.returned,
                       "Answer this byte count: short, or (under Wine only) larger than the reply");
    command.add_option("--word", options.words,
                       "INDEX=VALUE: overwrite a 32-bit word of the reply's header; 0 count, 1 dropped, 2 position, "
                       "3 writer's sequence of a drain; 0 total, 1 returned, 2 truncated of a list");
    command.add_option("--delay", options.delayMs, "Answer this many milliseconds later");
    command.add_option("--skip", options.skip, "Let this many such commands pass first");
    CLI::Option* const times = command.add_option("--times", options.times, "Fault this many (default: 1)");
    command.add_flag("--always", options.always, "Fault all from then on")->excludes(times);
}

}  // namespace

void AddFaultCommands(Tool& tool) {
    tool.Add<FailOptions>(
        "fail", "Have the next driver commands fail", "fail add-file-rule quota-exceeded\nfail any 0xC0000001 3",
        [](CLI::App& command, FailOptions& options) {
            command.add_option("COMMAND", options.code, "A driver command's name or code, or any")
                ->required()
                ->transform(Named(kCommands));
            command.add_option("STATUS", options.status, "A status's name or number")
                ->required()
                ->transform(Named(kStatuses));
            command.add_option("TIMES", options.times, "How many (default: 1)");
        },
        Fail);
    tool.Add<FaultOptions>("fault", "Have driver commands answer late, short or wrongly",
                           "fault list-file-rules --returned 16\nfault drain-events --word 0=500 --times 2\n"
                           "fault add-process-rule --skip 2 --status access-denied --always\nfault any --delay 300",
                           DeclareFault, Fault);
    tool.Add("clear-faults", "Remove the faults that have not been used up", "clear-faults", ClearFaults);
}

}  // namespace simctl
