// fault_table [SCENARIO]: makes every platform call and every allocation on the library's main paths fail once, each at
// each place where it is made, and prints what came of it: for each path the calls, and the statuses with the functions
// that led to them. A status of 0 there means that the path goes on without that call, as a missing log line or a file
// that is reported and left out.
//
// Then it lists what must not be: a status that no header names, handles left open, a key or record half written, the
// next call failing. The exit status is 1 when there is any of that.

#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <system_error>

#include "call_faults.h"
#include "fault_scenarios.h"
#include "format.h"
#include "process_counts.h"
#include "temp_folder.h"
#include "zoprotector.h"

namespace zoproof {
namespace {

using zotest::CallFaults;

// What a run ended with: a status, or what was raised.
std::string Outcome(const Scenario& scenario) {
    try {
        const std::int32_t status = scenario.run();
        return zo::Format("{:08X}", static_cast<std::uint32_t>(status));
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const std::filesystem::filesystem_error& error) {
        // "filesystem error: OPERATION: REASON [PATH]"
        const std::string what = error.what();
        const std::size_t start = what.find(": ") + 2;
        return what.substr(start, what.find(':', start) - start);
    } catch (const std::exception& error) {
        return std::string("raised: ") + error.what();
    }
}

// Statuses that the headers name, and the forms that carry the platform's own error: 0x8007 and a Win32 error, 0xD and
// an NTSTATUS.
bool IsNamed(const std::string& outcome) {
    static const std::set<std::string> named = {
        "00000000",  "80000001",           "80000002", "80000004",           "80000008", "80000009",
        "80004005",  "80049101",           "80049102", "80049103",           "80049104", "80049106",
        "bad_alloc", "create_directories", "exists",   "directory_iterator",
    };
    return named.contains(outcome) || outcome.starts_with("8007") || outcome.starts_with("D000");
}

struct Findings {
    std::map<std::string, std::map<std::string, int>> byOutcome;  // outcome -> function -> how often
    std::vector<std::string> wrong;
    std::map<CallFaults::Kind, std::size_t> failed;  // how many calls
    unsigned paths = 0;
};

// One run with the n-th call failing. False when the path makes fewer calls.
bool TryFault(CallFaults& faults, const Scenario& scenario, CallFaults::Kind kind, std::size_t n, Findings& findings) {
    scenario.prepare();
    const std::uint32_t handles = zotest::OpenHandleCount();
    faults.Arm(kind, n);
    const std::string outcome = Outcome(scenario);
    faults.Disarm();
    const std::string left = scenario.check();
    const std::uint32_t handlesAfter = zotest::OpenHandleCount();
    if (faults.FailedCall() == nullptr) return false;

    const std::string function = faults.FailedCall();
    ++findings.byOutcome[outcome][function];
    const auto wrong = [&](const std::string& what) {
        findings.wrong.push_back(
            zo::Format("{}: {} (call {}) failed, {}: {}", scenario.name, function, n, outcome, what));
    };
    if (!IsNamed(outcome)) wrong("no header names this");
    if (handlesAfter > handles) wrong(zo::Format("{} handles left", handlesAfter - handles));
    if (!left.empty()) wrong(left);
    scenario.prepare();
    if (const std::string next = Outcome(scenario); next != scenario.good) wrong("the next call gives " + next);
    return true;
}

void Walk(CallFaults& faults, const Scenario& scenario, Findings& all) {
    ++all.paths;
    scenario.prepare();
    static_cast<void>(Outcome(scenario));  // the platform keeps handles from the first call of some of its functions
    static_cast<void>(scenario.check());
    for (const auto kind : {CallFaults::Kind::kPlatform, CallFaults::Kind::kAllocation}) {
        Findings findings;
        std::size_t n = 1;
        while (TryFault(faults, scenario, kind, n, findings))
            ++n;
        std::printf("%-24s %4u %s\n", scenario.name, static_cast<unsigned>(n - 1),
                    kind == CallFaults::Kind::kPlatform ? "platform calls" : "allocations");
        for (const auto& [outcome, functions] : findings.byOutcome) {
            std::string text;
            for (const auto& [function, times] : functions)
                text += zo::Format(" {}{}", function, times > 1 ? zo::Format("*{}", times) : "");
            std::printf("    %-12s%s\n", outcome.c_str(), text.c_str());
        }
        all.failed[kind] += n - 1;
        all.wrong.insert(all.wrong.end(), findings.wrong.begin(), findings.wrong.end());
        std::fflush(stdout);
    }
}

int Run(const char* only) {
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    std::filesystem::current_path(folder.Path());  // where the log goes when the temporary folder cannot be found
    CallFaults faults;
    // The first exception of a process makes things that stay.
    Findings unused;
    static_cast<void>(
        TryFault(faults, SignerScenarios(folder.Path()).front(), CallFaults::Kind::kAllocation, 1, unused));
    Findings all;
    for (const auto& scenarios :
         {DriverScenarios(folder.Path()), SignerScenarios(folder.Path()), ReporterScenarios(folder.Path())}) {
        for (const Scenario& scenario : scenarios) {
            if (only == nullptr || std::strstr(scenario.name, only) != nullptr) Walk(faults, scenario, all);
        }
    }
    ZoProtector_UninstallDriver();
    for (const std::string& line : all.wrong)
        std::printf("WRONG: %s\n", line.c_str());
    std::printf("%u paths: %u platform calls and %u allocations failed once each, %u findings\n", all.paths,
                static_cast<unsigned>(all.failed[CallFaults::Kind::kPlatform]),
                static_cast<unsigned>(all.failed[CallFaults::Kind::kAllocation]),
                static_cast<unsigned>(all.wrong.size()));
    return all.wrong.empty() ? 0 : 1;
}

}  // namespace
}  // namespace zoproof

int main(int count, char** arguments) {
    try {
        return zoproof::Run(count > 1 ? arguments[1] : nullptr);
    } catch (const std::exception& error) {
        std::printf("fault_table: %s\n", error.what());
        return 1;
    }
}
