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

// A failing step does not stop the others, for each rule that comes into force is worth having; left out are steps
// whose precondition failed, and all that follow when the driver is gone or stop() says so.
[[nodiscard]] std::vector<StepResult> CarryOut(const std::vector<Step>& steps, const std::function<bool()>& stop);

[[nodiscard]] Json StepsJson(const std::vector<Step>& steps, const std::vector<StepResult>& results);

}  // namespace zoctl
