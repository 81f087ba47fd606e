#pragma once

// Carrying a plan out: one export a step.

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "output.h"
#include "rule_plan.h"

namespace zoctl {

enum class Outcome { kDone, kFailed, kNotTried };

struct StepResult {
    Outcome outcome = Outcome::kNotTried;
    std::int32_t status = 0;
};

// A failing step does not stop the others, for each rule that comes into force is worth having. Left out are steps
// whose precondition failed, further rules for a table that is full, and all that follow when the driver is gone, when
// the step cannot be read back (see Plan), or when stop() says so; stop() is not asked while rules that were taken away
// are not back yet.
[[nodiscard]] std::vector<StepResult> CarryOut(const std::vector<Step>& steps, const std::function<bool()>& stop);

// A table that the driver refused a rule for because it is full.
struct FullTable {
    std::string_view name;  // as the file has it: "process", "file.ignore"
    std::size_t notAdded = 0;
};
[[nodiscard]] std::vector<FullTable> FullTables(const std::vector<Step>& steps, const std::vector<StepResult>& results);
// Whether the step was left out for such a table.
[[nodiscard]] bool LeftOutAsFull(const Step& step, const StepResult& result, const std::vector<FullTable>& full);

// The parts of the file ("file.ignore") that cannot be read back and of which a step was held back or not done.
[[nodiscard]] std::vector<std::string> PartsNotSent(const Plan& plan, const std::vector<StepResult>& results);

[[nodiscard]] Json StepsJson(const std::vector<Step>& steps, const std::vector<StepResult>& results);

}  // namespace zoctl
