#pragma once

// What the doctor makes of what it measured. Pure: the facts come from doctor_facts.h, and every judgement, with its
// remedy, stands here.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "finding.h"
#include "signature_findings.h"

namespace zoctl {

struct DoctorFacts {
    std::int32_t queryStatus = 0;  // of the service query; the service's fields mean nothing when it failed
    std::uint32_t state = 0;       // ZOP_DRIVER_...
    std::uint32_t startType = 0;   // ZOP_START_...
    std::string imagePath;         // as the service manager has it
    bool fileThere = false;
    std::array<std::uint32_t, 4> fileVersion = {};
    DriverSignature signature;  // of a file that is there
    bool instanceRegistered = false;
    std::string altitude;
    bool underParameters = false;  // the instance is registered below the key Parameters, as packages do it
    bool markedForDeletion = false;

    std::optional<std::uint32_t> deviceError;  // Win32, 0 when it opened; nothing when it was not tried
    std::vector<std::string> holders;          // processes that use the device, where the system tells
    bool administrator = false;                // this process, when the device did not open

    std::optional<std::int32_t> handshake;            // of ZoProtector_Initialize
    std::array<std::uint32_t, 3> driverVersion = {};  // 0.0.0 after a handshake that failed
    std::int32_t masterStatus = 0;
    bool masterEnabled = false;
    std::int32_t rulesStatus = 0;
    std::array<std::uint32_t, 4> rules = {};  // process, file, registry, dll
    std::int32_t statsStatus = 0;
    std::uint32_t statsVersion = 0;
    std::uint32_t bypassAttempts = 0;
    std::int32_t ringStatus = 0;
    std::uint32_t lostMain = 0;  // overwritten before a reader that begins now could have them
    std::uint32_t lostRegistry = 0;

    std::string logFile;
    std::uint32_t logError = 0;  // Win32

    std::string developmentSettings;  // as DevelopmentSettings gives them
};

[[nodiscard]] std::vector<Finding> Judge(const DoctorFacts& facts);

}  // namespace zoctl
