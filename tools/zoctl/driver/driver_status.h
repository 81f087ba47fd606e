#pragma once

// The driver's service record in words and as JSON, for "driver status", "status" and the doctor.

#include <cstdint>
#include <map>
#include <string>

#include "output.h"
#include "zoprotector.h"

namespace zoctl {

[[nodiscard]] const char* StateName(std::uint32_t state);
[[nodiscard]] const char* StartTypeName(std::uint32_t startType);
// The names that StartTypeName gives, with the service manager's numbers.
[[nodiscard]] const std::map<std::string, std::uint32_t>& StartTypes();
// "1.2.3.4", or "none" when the file has no version that can be read.
[[nodiscard]] std::string FileVersionText(const ZoProtectorDriverStatus& status);
[[nodiscard]] Json DriverStatusJson(const ZoProtectorDriverStatus& status);
[[nodiscard]] TextTable DriverStatusTable(const ZoProtectorDriverStatus& status);

}  // namespace zoctl
