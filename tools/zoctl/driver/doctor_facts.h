#pragma once

// Measures what the doctor judges: the service, the registry, the file, the device and the log. It changes nothing that
// is there, but is not without a trace: it makes the day's log file where there is none, opens the device, which nobody
// else can open meanwhile, and has the service manager make a change that changes nothing.

#include "doctor_findings.h"

namespace zoctl {

[[nodiscard]] DoctorFacts GatherDoctorFacts();

}  // namespace zoctl
