#pragma once

// Who signed the driver's file, as the system's own check of signatures reports it. It asks no server.

#include "signature_findings.h"

namespace zoctl {

[[nodiscard]] DriverSignature ReadDriverSignature(const std::wstring& path);

}  // namespace zoctl
