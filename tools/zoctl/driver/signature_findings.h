#pragma once

// What the signature of the driver's file means for its start. Pure; driver_signature.h reads the signature.

#include <cstdint>
#include <string>

#include "finding.h"

namespace zoctl {

struct DriverSignature {
    std::uint32_t trust = 0;  // what the system's check gives: 0, or the HRESULT of the first objection
    std::string signer;       // the name in the certificate, empty where the check found none
    bool forDrivers = false;  // the certificate is one of those with which Microsoft signs drivers
    bool testMode = false;    // the system loads drivers that are signed by anyone
};

enum class LoadOutlook { kLikely, kUnlikely, kUnknown };

[[nodiscard]] LoadOutlook OutlookOf(const DriverSignature& signature);
// "likely", "unlikely", "unknown"
[[nodiscard]] const char* OutlookName(LoadOutlook outlook);
[[nodiscard]] Finding JudgeSignature(const DriverSignature& signature);

}  // namespace zoctl
