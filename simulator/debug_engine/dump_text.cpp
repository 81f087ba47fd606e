#include "dump_text.h"

#include "format.h"

namespace zoengine {
namespace {

constexpr std::uint32_t kNormal = 0x1;
constexpr std::uint32_t kWarning = 0x4;
constexpr std::uint32_t kSymbols = 0x200;

constexpr std::uint64_t kSecond = 10'000'000;  // in units of 100 ns
constexpr std::uint64_t kDay = 86'400 * kSecond;

// Kernel addresses are shown in two halves, as this family of tools does.
std::string Address(std::uint64_t value) {
    return zo::Format("{:08x}`{:08x}", value >> 32, value & 0xFFFFFFFFu);
}

std::string_view KindText(std::uint32_t kind) {
    switch (static_cast<DumpKind>(kind)) {
        case DumpKind::kFull:
        case DumpKind::kBitmapFull:
            return "Complete memory dump";
        case DumpKind::kKernel:
        case DumpKind::kBitmapKernel:
            return "Kernel memory dump; of it the header alone is read";
        case DumpKind::kTriage:
            return "Small kernel dump: registers, stack and module list only";
    }
    return "Kernel dump of an unknown kind; of it the header alone is read";
}

// The proleptic calendar from days since 1601-01-01, by the usual reckoning with years that begin in March.
std::string Calendar(std::uint64_t time) {
    const std::uint64_t days = time / kDay + 584'694;  // since 0000-03-01
    const std::uint64_t seconds = time / kSecond % 86'400;
    const std::uint64_t era = days / 146'097;
    const std::uint64_t dayOfEra = days % 146'097;
    const std::uint64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const std::uint64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::uint64_t shifted = (5 * dayOfYear + 2) / 153;
    const std::uint64_t day = dayOfYear - (153 * shifted + 2) / 5 + 1;
    const std::uint64_t month = shifted < 10 ? shifted + 3 : shifted - 9;
    const std::uint64_t year = era * 400 + yearOfEra + (month <= 2 ? 1 : 0);
    return zo::Format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} UTC", year, month, day, seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
}

// The first frame that is not the kernel's own is what a reader wants to know first.
const Module* LikelyCulprit(const KernelDump& dump) {
    for (const Frame& frame : WalkStack(dump, 50)) {
        const Module* module = FindModule(dump, frame.instruction);
        if (module != nullptr && module->name != "nt" && module->name != "hal") return module;
    }
    return nullptr;
}

}  // namespace

std::string CallSite(const KernelDump& dump, std::uint64_t address) {
    const Module* module = FindModule(dump, address);
    if (module == nullptr) return zo::Format("0x{}", Address(address));
    return zo::Format("{}+0x{:x}", module->name, address - module->base);
}

std::vector<OutputText> OpeningText(std::string_view path, const KernelDump& dump) {
    return {{kNormal, zo::Format("\nOpening dump file [{}]\n{}\n\n", path, KindText(dump.kind))}};
}

std::vector<OutputText> LoadingText(const KernelDump& dump) {
    std::vector<OutputText> out;
    out.push_back({kNormal, zo::Format("Kernel build {} ({} processors) x64\n", dump.buildNumber, dump.processors)});
    const Module* kernel = nullptr;
    for (const Module& module : dump.modules)
        if (module.name == "nt") kernel = &module;
    out.push_back({kNormal, zo::Format("Kernel base = 0x{} PsLoadedModuleList = 0x{}\n",
                                       Address(kernel != nullptr ? kernel->base : 0), Address(dump.kernelModuleList))});
    out.push_back({kNormal, zo::Format("Time of the crash: {}\n", Calendar(dump.systemTime))});
    out.push_back({kNormal, zo::Format("System up time: {} days {}:{:02}:{:02}\n", dump.upTime / kDay,
                                       dump.upTime / kSecond / 3600 % 24, dump.upTime / kSecond / 60 % 60,
                                       dump.upTime / kSecond % 60)});

    std::string dots = "Loading kernel modules\n";
    for (std::size_t i = 0; i < dump.modules.size(); ++i)
        dots += i % 64 == 63 ? ".\n" : ".";
    out.push_back({kNormal, dots + "\n"});
    for (const Module& module : dump.modules)
        out.push_back({kSymbols, zo::Format("{} at 0x{}: no symbols\n", module.name, Address(module.base))});

    out.push_back({kNormal, zo::Format("\nBugCheck {:X}, {{{:x}, {:x}, {:x}, {:x}}}\n\n", dump.bugCheckCode,
                                       dump.bugCheckParameters[0], dump.bugCheckParameters[1],
                                       dump.bugCheckParameters[2], dump.bugCheckParameters[3])});
    if (const Module* culprit = LikelyCulprit(dump); culprit != nullptr)
        out.push_back({kNormal, zo::Format("Probably caused by : {}\n\n", culprit->name)});
    else
        out.push_back({kWarning, "The stack names no module but the kernel\n"});
    return out;
}

std::string StackText(const KernelDump& dump, const std::vector<Frame>& frames, StackColumns columns) {
    std::string text;
    if (columns.names) {
        if (columns.numbers) text += " # ";
        if (columns.addresses) text += "Child-SP          RetAddr           ";
        text += "Call Site\n";
    }
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (columns.numbers) text += zo::Format("{:02x} ", i);
        if (columns.addresses)
            text += zo::Format("{} {} ", Address(frames[i].childSp), Address(frames[i].returnAddress));
        text += CallSite(dump, frames[i].instruction) + "\n";
    }
    return text;
}

}  // namespace zoengine
