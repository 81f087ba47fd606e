#pragma once

// Carrying a plan out: one export a step.

#include <cstdint>
#include <functional>
#include <vector>

#include "output.h"
#include "rule_plan.h"

namespace zoctl {

enum class Outcome { kDone, kFailed, kNotTried };

struct StepResult {
    Outcome outcome = Outcome::kNotTried;
    std::int32_t status = 0;
};

// A failing step does not stop the others, for each rule that comes into force is worth having. Left out are steps whose
// precondition failed, and all that follow when the driver is gone, when the step cannot be read back (see Plan), or
// when stop() says so; stop() is not asked while rules that were taken away are not back yet.
[[nodiscard]] std::vector<StepResult> CarryOut(const std::vector<Step>& steps, const std::function<bool()>& stop);

// The parts of the file ("file.ignore") that cannot be read back and of which a step was held back or not done.
[[nodiscard]] std::vector<std::string> PartsNotSent(const Plan& plan, const std::vector<StepResult>& results);

[[nodiscard]] Json StepsJson(const std::vector<Step>& steps, const std::vector<StepResult>& results);

}  // namespace zoctl
