#include <memory>

#include "channel.h"
#include "driver_commands.h"
#include "driver_names.h"
#include "facts.h"
#include "format.h"
#include "installer_command.h"
#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

Facts ServiceFacts(const ZoProtectorDriverStatus& record) {
    const bool installed = record.state != ZOP_DRIVER_NOT_INSTALLED;
    const bool registered = record.instanceRegistered != 0;
    const std::string altitude = zo::Utf8FromWide(record.altitude);
    const std::string version = FileVersionText(record);
    const auto ifInstalled = [installed](const char* label) { return installed ? label : nullptr; };
    Facts facts;
    facts.Add("state", "state", StateName(record.state));
    facts.Add(ifInstalled("start type"), "startType",
              installed ? Json(StartTypeName(record.startType)) : Json(nullptr));
    facts.Add(record.processId ? "process id" : nullptr, "processId", record.processId);
    facts.Add(ifInstalled("image path"), "imagePath", zo::Utf8FromWide(record.imagePath));
    facts.Add(nullptr, "instanceRegistered", registered);
    facts.Add(ifInstalled("filter altitude"), "altitude", altitude, registered ? altitude : "not registered");
    facts.Add(ifInstalled("file version"), "fileVersion", TextOrNull(version), version.empty() ? "none" : "");
    return facts;
}

int ShowService(Output& out) {
    ZoProtectorDriverStatus record{};
    const std::int32_t status = ZoProtector_QueryDriverStatus(&record);
    if (status < 0) return out.Fail(status, Subject::kService, "read the driver's status");
    const Facts facts = ServiceFacts(record);
    out.Table(facts.Sheet({"DRIVER SERVICE", ""}));
    if (record.state == ZOP_DRIVER_NOT_INSTALLED) out.Hint("Install it with \"zoctl driver install PATH\".");
    return out.Done("", facts.Members());
}

// A command without arguments over one export of the service.
void AddServiceCommand(Tool& tool, CLI::App& group, const CommandText& text, std::int32_t (*call)(), const char* what,
                       const char* done) {
    tool.AddCommand(group, text, [call, what, done](Output& out) {
        const Cancellation deferred = DeferFirstCtrlC(out);
        return out.Report(call(), Subject::kService, what, done);
    });
}

void AddSetStart(Tool& tool, CLI::App& group) {
    const auto startType = std::make_shared<std::string>();
    CLI::App& set = tool.AddCommand(
        group, {"set-start", "Change when the driver starts", "driver set-start auto"}, [startType](Output& out) {
            return out.Report(ZoProtector_ChangeDriverStartType(*StartTypeNumber(*startType)), Subject::kService,
                              "change the start type", zo::Format("The driver's start type is now {}.", *startType),
                              {{"startType", *startType}});
        });
    set.add_option("type", *startType, "boot, system, auto, demand or disabled")
        ->required()
        ->check(CLI::IsMember(kStartTypes));
}

}  // namespace

void RegisterDriver(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "driver", "Install, start, stop, upgrade and remove the protection driver");
    AddInstall(tool, group);
    AddServiceCommand(tool, group, {"start", "Start the driver", "driver start"}, ZoProtector_StartDriver,
                      "start the driver", "The driver is started.");
    AddServiceCommand(tool, group, {"stop", "Stop the driver and wait until it is stopped", "driver stop"},
                      ZoProtector_StopDriver, "stop the driver", "The driver is stopped.");
    tool.AddCommand(group, {"status", "Show the driver's service, file and filter", "driver status --json"},
                    ShowService);
    AddInstallerCommand(tool, group,
                        {"uninstall", "Stop the driver and remove its service, filter and file", "driver uninstall"},
                        [](Output& out) {
                            return out.Report(ZoProtector_UninstallDriver(), Subject::kService, "uninstall the driver",
                                              "The driver is uninstalled.");
                        });
    AddSetStart(tool, group);
    tool.AddCommand(
        group, {"self-protect", "Have the driver protect its own file and service key", "driver self-protect"},
        WithDriver([](Output& out) {
            return out.Report(ZoProtector_AddDriverSelfProtect(), Subject::kAny, "protect the driver itself",
                              "The driver's file and service key are protected, and file protection is on.");
        }));
}

}  // namespace zoctl
