#include <algorithm>
#include <iterator>
#include <memory>

#include "channel.h"
#include "driver_commands.h"
#include "driver_names.h"
#include "driver_signature.h"
#include "facts.h"
#include "format.h"
#include "image_path.h"
#include "installer_command.h"
#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct InstallOptions {
    std::string source;
    std::string startType = "demand";
    std::string altitude;
    bool allowUnload = false;
};

// Whether Windows is likely to load the installed file, which is better known before the start fails.
void ReportSignature(Output& out, Json& facts) {
    ZoProtectorDriverStatus record{};
    if (ZoProtector_QueryDriverStatus(&record) < 0) return;  // it is installed, only nothing more is known about it
    const DriverSignature signature = ReadDriverSignature(zop::ZopResolveImagePath(record.imagePath));
    const Finding finding = JudgeSignature(signature);
    facts["signature"] = {{"signer", signature.signer.empty() ? Json(nullptr) : Json(signature.signer)},
                          {"loads", OutlookName(OutlookOf(signature))},
                          {"finding", finding.text}};
    if (finding.severity == Severity::kGood) return;
    out.Hint(zo::Format("{}: {}. {}", finding.subject, finding.text, finding.remedy));
}

int Install(Output& out, const InstallOptions& options) {
    const std::int32_t status =
        ZoProtector_InstallDriver(zo::WideFromUtf8(options.source).c_str(), *StartTypeNumber(options.startType),
                                  zo::WideFromUtf8(options.altitude).c_str(), options.allowUnload ? 1 : 0);
    const std::string what = options.source.empty() ? "install the driver file next to zoctl"
                                                    : "install the driver " + Quote(options.source);
    if (status < 0) return out.Fail(status, Subject::kInstall, what);
    Json facts = {{"startType", options.startType}};
    ReportSignature(out, facts);
    out.Hint("Start it with \"zoctl driver start\".");
    return out.Done("The driver is installed.", facts);
}

Facts ServiceFacts(const ZoProtectorDriverStatus& record) {
    const bool installed = record.state != ZOP_DRIVER_NOT_INSTALLED;
    const bool registered = record.instanceRegistered != 0;
    const std::uint32_t version[] = {record.fileVersionMajor, record.fileVersionMinor, record.fileVersionBuild,
                                     record.fileVersionRevision};
    const bool hasVersion = std::any_of(std::begin(version), std::end(version), [](auto part) { return part != 0; });
    const std::string altitude = zo::Utf8FromWide(record.altitude);
    const auto ifInstalled = [installed](const char* label) { return installed ? label : nullptr; };
    Facts facts;
    facts.Add("state", "state", StateName(record.state));
    facts.Add(ifInstalled("start type"), "startType", StartTypeName(record.startType));
    facts.Add(record.processId ? "process id" : nullptr, "processId", record.processId);
    facts.Add(ifInstalled("image path"), "imagePath", zo::Utf8FromWide(record.imagePath));
    facts.Add(nullptr, "instanceRegistered", registered);
    facts.Add(ifInstalled("filter altitude"), "altitude", altitude, registered ? altitude : "not registered");
    facts.Add(ifInstalled("file version"), "fileVersion", hasVersion ? VersionText(version) : "none");
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

int Upgrade(Output& out, const std::string& path) {
    std::uint32_t upgraded = 0;
    std::uint32_t replacedByDriver = 0;
    const std::int32_t status = ZoProtector_UpgradeDriver(zo::WideFromUtf8(path).c_str(), &upgraded, &replacedByDriver);
    ZoProtector_Uninitialize();  // the upgrade may have opened the channel
    const Json facts = {{"upgraded", upgraded != 0}, {"replacedByDriver", replacedByDriver != 0}};
    if (status < 0) return out.Fail(status, Subject::kUpgrade, "upgrade the driver to " + Quote(path), facts);
    if (!upgraded)
        return out.Done("Nothing was replaced: the installed driver is as new as the file, or newer.", facts);
    out.Hint("The running driver keeps its old image; the new file is loaded the next time the driver starts.");
    return out.Done(replacedByDriver
                        ? "The driver's file was replaced, by the driver itself because the file was locked."
                        : "The driver's file was replaced.",
                    facts);
}

// A command without arguments over one export of the service.
void AddServiceCommand(Tool& tool, CLI::App& group, const CommandText& text, std::int32_t (*call)(), const char* what,
                       const char* done) {
    tool.AddCommand(group, text, [call, what, done](Output& out) {
        const Cancellation deferred = DeferFirstCtrlC(out);
        return out.Report(call(), Subject::kService, what, done);
    });
}

void AddInstall(Tool& tool, CLI::App& group) {
    const auto options = std::make_shared<InstallOptions>();
    CLI::App& install = AddInstallerCommand(
        tool, group,
        {"install", "Copy the driver's file into the system and register its service and filter; safe to repeat",
         "driver install C:\\Suite\\ZoProtectorDriver.sys --start auto --allow-unload"},
        [options](Output& out) { return Install(out, *options); });
    install.add_option("source", options->source, "The driver's file; ZoProtectorDriver.sys next to zoctl if left out");
    install.add_option("--start", options->startType, "When the driver starts")
        ->check(CLI::IsMember(kStartTypes))
        ->capture_default_str();
    install.add_option("--altitude", options->altitude, "The filter's altitude; 385100 if left out");
    install.add_flag("--allow-unload", options->allowUnload, "Let the driver be stopped without a restart");
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
    const auto path = std::make_shared<std::string>();
    AddInstallerCommand(tool, group,
                        {"upgrade", "Replace the installed driver's file with a newer one, even while it is in use",
                         "driver upgrade C:\\Download\\ZoProtectorDriver.sys"},
                        [path](Output& out) { return Upgrade(out, *path); })
        .add_option("file", *path, "The new driver's file")
        ->required();
    tool.AddCommand(
        group, {"self-protect", "Have the driver protect its own file and service key", "driver self-protect"},
        WithDriver([](Output& out) {
            return out.Report(ZoProtector_AddDriverSelfProtect(), Subject::kRule, "protect the driver itself",
                              "The driver's file and service key are protected, and file protection is on.");
        }));
}

}  // namespace zoctl
