#pragma once

// Measures what the doctor judges: the service, the registry, the file, the device and the log, read only.

#include "doctor_findings.h"

namespace zoctl {

[[nodiscard]] DoctorFacts GatherDoctorFacts();

}  // namespace zoctl
