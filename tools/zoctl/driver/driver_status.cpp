#include "driver_status.h"

#include "format.h"
#include "text.h"

namespace zoctl {

const char* StateName(std::uint32_t state) {
    switch (state) {
        case ZOP_DRIVER_NOT_INSTALLED:
            return "not installed";
        case ZOP_DRIVER_STOPPED:
            return "stopped";
        case ZOP_DRIVER_START_PENDING:
            return "start pending";
        case ZOP_DRIVER_STOP_PENDING:
            return "stop pending";
        case ZOP_DRIVER_RUNNING:
            return "running";
        default:
            return "unknown";
    }
}

const std::map<std::string, std::uint32_t>& StartTypes() {
    static const std::map<std::string, std::uint32_t> types = {{"boot", ZOP_START_BOOT},
                                                               {"system", ZOP_START_SYSTEM},
                                                               {"auto", ZOP_START_AUTO},
                                                               {"demand", ZOP_START_DEMAND},
                                                               {"disabled", ZOP_START_DISABLED}};
    return types;
}

const char* StartTypeName(std::uint32_t startType) {
    for (const auto& [name, number] : StartTypes()) {
        if (number == startType) return name.c_str();
    }
    return "unknown";
}

std::string FileVersionText(const ZoProtectorDriverStatus& status) {
    if (!status.fileVersionMajor && !status.fileVersionMinor && !status.fileVersionBuild &&
        !status.fileVersionRevision) {
        return "none";
    }
    return zo::Format("{}.{}.{}.{}", status.fileVersionMajor, status.fileVersionMinor, status.fileVersionBuild,
                      status.fileVersionRevision);
}

Json DriverStatusJson(const ZoProtectorDriverStatus& status) {
    return {{"state", StateName(status.state)},
            {"startType", StartTypeName(status.startType)},
            {"processId", status.processId},
            {"imagePath", zo::Utf8FromWide(status.imagePath)},
            {"instanceRegistered", status.instanceRegistered != 0},
            {"altitude", zo::Utf8FromWide(status.altitude)},
            {"fileVersion", FileVersionText(status)}};
}

TextTable DriverStatusTable(const ZoProtectorDriverStatus& status) {
    TextTable table({"DRIVER SERVICE", ""});
    table.Add({"state", StateName(status.state)});
    if (status.state == ZOP_DRIVER_NOT_INSTALLED) return table;
    table.Add({"start type", StartTypeName(status.startType)});
    table.Add({"image path", zo::Utf8FromWide(status.imagePath)});
    table.Add({"file version", FileVersionText(status)});
    table.Add({"filter altitude", status.instanceRegistered ? zo::Utf8FromWide(status.altitude) : "not registered"});
    if (status.processId) table.Add({"process id", zo::Format("{}", status.processId)});
    return table;
}

}  // namespace zoctl
