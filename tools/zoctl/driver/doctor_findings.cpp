#include "doctor_findings.h"

#include <algorithm>

#include "driver_names.h"
#include "format.h"
#include "status_table.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

std::string StatusWords(std::int32_t status) {
    const StatusText text = DescribeStatus(status, Subject::kAny);
    return zo::Format("{} ({} {})", text.meaning, text.name, text.value);
}

Finding JudgeState(const DoctorFacts& facts) {
    switch (facts.state) {
        case ZOP_DRIVER_RUNNING:
            return Good("service", "running");
        case ZOP_DRIVER_STOPPED:
            return Wrong("service", "stopped", "Start it with \"zoctl driver start\".");
        case ZOP_DRIVER_START_PENDING:
        case ZOP_DRIVER_STOP_PENDING:
            return Wrong("service", facts.state == ZOP_DRIVER_START_PENDING ? "starting" : "stopping",
                         "Wait and run this again; if nothing changes, restart the system.");
        default:
            return Wrong("service", "in an unknown state", "Look at it with the system's service tools.");
    }
}

Finding JudgeStartType(const DoctorFacts& facts) {
    if (facts.startType == ZOP_START_DISABLED) {
        return Wrong("start type", "disabled", "Allow it with \"zoctl driver set-start auto\".");
    }
    return Good("start type", StartTypeName(facts.startType));
}

Finding JudgeFile(const DoctorFacts& facts) {
    if (facts.imagePath.empty()) {
        return Wrong("driver file", "the service names no file", "Install again with \"zoctl driver install PATH\".");
    }
    if (!facts.fileThere) {
        return Wrong("driver file", zo::Format("{} does not exist or cannot be accessed", facts.imagePath),
                     "Install again with \"zoctl driver install PATH\".");
    }
    return Good("driver file", facts.imagePath);
}

void JudgeVersion(const DoctorFacts& facts, std::vector<Finding>& findings) {
    if (!facts.fileThere) return;
    const auto& file = facts.fileVersion;
    if (file == std::array<std::uint32_t, 4>{}) {
        findings.push_back(Wrong("file version", "the file has no version",
                                 "Replace it with the original driver file: \"zoctl driver upgrade PATH\"."));
        return;
    }
    const std::string text = VersionText(file);
    const auto& running = facts.driverVersion;
    const bool known = running != std::array<std::uint32_t, 3>{};
    if (known && !std::equal(running.begin(), running.end(), file.begin())) {
        findings.push_back(Wrong("file version", zo::Format("{}, but {} is running", text, VersionText(running)),
                                 "Restart the driver (\"zoctl driver stop\", \"zoctl driver start\") or the system."));
        return;
    }
    findings.push_back(Good("file version", text + (known ? ", the running version" : "")));
}

Finding JudgeInstance(const DoctorFacts& facts) {
    const std::string remedy = "Register it again with \"zoctl driver install PATH\".";
    if (!facts.instanceRegistered) return Wrong("filter instance", "not registered, or without an altitude", remedy);
    if (!IsAltitude(facts.altitude)) {
        return Wrong("filter instance", zo::Format("its altitude \"{}\" is not a number", facts.altitude), remedy);
    }
    return Good("filter instance",
                "altitude " + facts.altitude + (facts.underParameters ? ", below the key Parameters" : ""));
}

void JudgeService(const DoctorFacts& facts, std::vector<Finding>& findings) {
    if (facts.queryStatus < 0) {
        findings.push_back(
            Wrong("service", "cannot be queried: " + StatusWords(facts.queryStatus), "Run zoctl as an administrator."));
        return;
    }
    if (facts.state == ZOP_DRIVER_NOT_INSTALLED) {
        findings.push_back(Wrong("service", "not installed", "Install it with \"zoctl driver install PATH\"."));
        return;
    }
    findings.push_back(JudgeState(facts));
    if (facts.markedForDeletion) {
        findings.push_back(Wrong("deletion", "the service is marked for deletion",
                                 "Close what holds it open or restart the system, then install it again."));
    }
    findings.push_back(JudgeStartType(facts));
    findings.push_back(JudgeFile(facts));
    JudgeVersion(facts, findings);
    if (facts.fileThere) findings.push_back(JudgeSignature(facts.signature));
    findings.push_back(JudgeInstance(facts));
}

Finding JudgeDevice(const DoctorFacts& facts) {
    const std::uint32_t error = *facts.deviceError;
    if (error == 0) return Good("device", "can be opened");
    std::string holders;
    for (const std::string& holder : facts.holders)
        holders += (holders.empty() ? "" : ", ") + holder;
    const bool running = facts.state == ZOP_DRIVER_RUNNING;
    if (error == kErrorFileNotFound) {
        if (facts.state == ZOP_DRIVER_START_PENDING || facts.state == ZOP_DRIVER_STOP_PENDING) {
            return Note("device", "does not exist while the service starts or stops", "Wait and run this again.");
        }
        return Wrong("device", running ? "does not exist although the service runs" : "does not exist",
                     "Stop the driver and start it again.");
    }
    // Only one process can open it: when an administrator is denied, another process has it open.
    const bool denied = error == kErrorAccessDenied;
    if (error == kErrorSharingViolation || !holders.empty() || (denied && facts.administrator)) {
        const std::string text =
            "is held by another process" + (holders.empty() ? ", which the system does not identify" : ": " + holders);
        if (!running) return Wrong("device", text, "End that process, or do the work in it.");
        return Note("device", text + "; handshake, protection, rules, events and counters were not checked",
                    "Nothing, if that program is meant to use the driver; end it to check the rest.");
    }
    if (denied) return Wrong("device", "access is denied", "Run zoctl as an administrator.");
    return Wrong("device", zo::Format("cannot be opened, error {}", error), "Restart the driver.");
}

Finding JudgeHandshake(const DoctorFacts& facts) {
    if (*facts.handshake >= 0) return Good("handshake", "driver " + VersionText(facts.driverVersion));
    const StatusText text = DescribeStatus(*facts.handshake, Subject::kChannel);
    return Wrong("handshake", zo::Format("{} ({} {})", text.meaning, text.name, text.value), text.advice);
}

Finding JudgeRules(const DoctorFacts& facts) {
    if (facts.rulesStatus < 0) {
        return Wrong("rules", "cannot be read: " + StatusWords(facts.rulesStatus), "Restart the driver.");
    }
    const auto& rules = facts.rules;
    const std::string text =
        zo::Format("{} process, {} file, {} registry, {} DLL folders", rules[0], rules[1], rules[2], rules[3]);
    if ((rules[0] | rules[1] | rules[2]) == 0) {
        return Note("rules", text + ": nothing is protected", "Apply a rule file with \"zoctl rules apply FILE\".");
    }
    return Good("rules", text);
}

Finding JudgeLosses(const DoctorFacts& facts) {
    if (facts.ringStatus < 0) {
        return Wrong("events", "cannot be read: " + StatusWords(facts.ringStatus), "Restart the driver.");
    }
    if (facts.lostMain || facts.lostRegistry) {
        return Note(
            "events",
            zo::Format("{} of the main ring and {} of the registry ring were overwritten before anyone read them",
                       facts.lostMain, facts.lostRegistry),
            "If a reader reports losses, make it poll more often or with a larger capacity.");
    }
    return Good("events", "none lost");
}

Finding JudgeStats(const DoctorFacts& facts) {
    if (facts.statsStatus < 0) {
        return Wrong("counters", "cannot be read: " + StatusWords(facts.statsStatus), "Restart the driver.");
    }
    if (facts.statsVersion < 3) {
        return Note("counters", zo::Format("layout {}, without the bypass counter", facts.statsVersion),
                    "Upgrade the driver with \"zoctl driver upgrade PATH\".");
    }
    if (facts.bypassAttempts) {
        return Note("counters", zo::Format("{} unsigned bypass attempts", facts.bypassAttempts),
                    "Look at the events of that time.");
    }
    return Good("counters", "no unsigned bypass attempts");
}

void JudgeDriver(const DoctorFacts& facts, std::vector<Finding>& findings) {
    if (facts.deviceError) findings.push_back(JudgeDevice(facts));
    if (facts.deviceError && *facts.deviceError != 0) return;  // the handshake would only say the same again
    if (!facts.handshake) return;
    findings.push_back(JudgeHandshake(facts));
    if (*facts.handshake < 0) return;
    if (facts.masterStatus < 0) {
        findings.push_back(
            Wrong("protection", "cannot be queried: " + StatusWords(facts.masterStatus), "Restart the driver."));
    } else if (!facts.masterEnabled) {
        findings.push_back(Wrong("protection", "switched off", "Switch it on with \"zoctl enable\"."));
    } else {
        findings.push_back(Good("protection", "switched on"));
    }
    findings.push_back(JudgeRules(facts));
    findings.push_back(JudgeLosses(facts));
    findings.push_back(JudgeStats(facts));
}

Finding JudgeLog(const DoctorFacts& facts) {
    if (facts.logError == 0) return Good("diagnostic log", facts.logFile);
    if (facts.logError == kErrorSharingViolation) {
        return Note("diagnostic log", facts.logFile + " is written by another process",
                    "Lines of other processes reach only a debugger until that process ends.");
    }
    if (facts.logError == kErrorReparsePointEncountered) {
        return Wrong("diagnostic log", facts.logFile + " is not written, because it or its folder is a link",
                     "Remove the link, or set TMP to a folder that only this user can change.");
    }
    return Wrong("diagnostic log", zo::Format("{} cannot be written, error {}", facts.logFile, facts.logError),
                 "Give this user write access to the folder, or set TMP to a folder that can be written.");
}

}  // namespace

std::vector<Finding> Judge(const DoctorFacts& facts) {
    std::vector<Finding> findings;
    JudgeService(facts, findings);
    JudgeDriver(facts, findings);
    findings.push_back(JudgeLog(facts));
    if (!facts.developmentSettings.empty()) {
        findings.push_back(Note("library", facts.developmentSettings,
                                "For development only; ship a library that was built with your own."));
    }
    return findings;
}

}  // namespace zoctl
