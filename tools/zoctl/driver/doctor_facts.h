#pragma once

// Measures what the doctor judges: the service, the registry, the file, the device and the log. It changes nothing that
// exists, but it leaves traces: it creates the day's log file if there is none, holds the device open for a moment, so
// that nobody else can open it, and asks the service manager for a change that changes nothing.

#include "doctor_findings.h"

namespace zoctl {

[[nodiscard]] DoctorFacts GatherDoctorFacts();

}  // namespace zoctl
