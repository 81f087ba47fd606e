// "zoctl driver install": a first installation with the defaults, or a repeated one that keeps what the service has.

#include <memory>
#include <string>
#include <vector>

#include "driver_commands.h"
#include "driver_names.h"
#include "driver_signature.h"
#include "files.h"
#include "format.h"
#include "image_path.h"
#include "input_file.h"
#include "installer_command.h"
#include "service_registry.h"
#include "text.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct InstallOptions {
    std::string source;
    std::string startType;  // empty, like altitude, when not given
    std::string altitude;
    bool allowUnload = false;
    bool forbidUnload = false;
};

// The service as it is now.
struct Setup {
    bool installed = false;
    std::string startType = StartTypeName(ZOP_START_DEMAND);
    std::string altitude;
    bool allowUnload = false;
    std::wstring imagePath;  // as the service manager has it
    std::string fileVersion;
};

std::int32_t ReadSetup(Setup& setup) {
    ZoProtectorDriverStatus record{};
    const std::int32_t status = ZoProtector_QueryDriverStatus(&record);
    if (status < 0 || record.state == ZOP_DRIVER_NOT_INSTALLED) return status;
    setup.installed = true;
    setup.startType = StartTypeName(record.startType);
    setup.altitude = record.instanceRegistered ? zo::Utf8FromWide(record.altitude) : AltitudeUnderParameters();
    setup.allowUnload = AllowsUnload();
    setup.imagePath = record.imagePath;
    setup.fileVersion = FileVersionText(record);
    return status;
}

// An option overrides the present setting, which overrides the default. An altitude that is not a number is not kept.
Setup Wanted(const InstallOptions& options, const Setup& before) {
    Setup wanted = before;
    if (!options.startType.empty()) wanted.startType = options.startType;
    if (!options.altitude.empty()) wanted.altitude = options.altitude;
    if (!IsAltitude(wanted.altitude)) wanted.altitude.clear();
    if (options.allowUnload || options.forbidUnload) wanted.allowUnload = options.allowUnload;
    return wanted;
}

// [{"setting", "from", "to"}]
Json Changes(const Setup& before, const Setup& after) {
    Json changes = Json::array();
    const auto compare = [&changes](const char* setting, const Json& from, const Json& to) {
        if (from != to) changes.push_back({{"setting", setting}, {"from", from}, {"to", to}});
    };
    compare("startType", before.startType, after.startType);
    compare("altitude", before.altitude, after.altitude);
    compare("allowUnload", before.allowUnload, after.allowUnload);
    compare("imagePath", zo::Utf8FromWide(before.imagePath), zo::Utf8FromWide(after.imagePath));
    compare("fileVersion", TextOrNull(before.fileVersion), TextOrNull(after.fileVersion));
    return changes;
}

std::string ChangesText(const Json& changes) {
    std::string text;
    for (const Json& change : changes) {
        text += zo::Format("{}{}: {}, was {}", text.empty() ? "" : "; ", change["setting"].get<std::string>(),
                           change["to"].dump(), change["from"].dump());
    }
    return text;
}

// Whether Windows is likely to load the file: better to know before the start fails.
void ReportSignature(const std::wstring& file, Json& facts, std::vector<std::string>& hints) {
    const DriverSignature signature = ReadDriverSignature(file);
    const Finding finding = JudgeSignature(signature);
    facts["signature"] = {{"signer", TextOrNull(signature.signer)},
                          {"loads", OutlookName(OutlookOf(signature))},
                          {"finding", finding.text}};
    if (finding.severity == Severity::kGood) return;
    hints.push_back(zo::Format("{}: {}. {}", finding.subject, finding.text, finding.remedy));
}

// The library takes a file of the same size for the same driver, which is not always so.
void ReportKeptFile(const std::string& source, const std::wstring& installed, Json& facts,
                    std::vector<std::string>& hints) {
    std::string given;
    std::string there;
    const bool known = !source.empty() && zo::ReadWholeFile(zo::WideFromUtf8(source).c_str(), given) &&
                       zo::ReadWholeFile(installed.c_str(), there);
    facts["fileKept"] = known && given != there;
    if (!known || given == there) return;
    hints.push_back("The installed file was kept: it has the size of " + Quote(source) +
                    " but other contents. \"zoctl driver upgrade\" replaces it with a newer version; to put in any "
                    "other, uninstall first.");
}

int Install(Output& out, const InstallOptions& options) {
    const std::string what = options.source.empty() ? "install the driver file next to zoctl"
                                                    : "install the driver " + Quote(options.source);
    if (!options.source.empty()) {
        if (const Ended ended = RefuseFolderAsFile(out, options.source)) return *ended;
    }
    Setup before;
    if (const std::int32_t status = ReadSetup(before); status < 0) return out.Fail(status, Subject::kInstall, what);
    const Setup wanted = Wanted(options, before);
    const std::int32_t status =
        ZoProtector_InstallDriver(zo::WideFromUtf8(options.source).c_str(), *StartTypeNumber(wanted.startType),
                                  zo::WideFromUtf8(wanted.altitude).c_str(), wanted.allowUnload);
    if (status < 0) return out.Fail(status, Subject::kInstall, what);
    Setup after;
    if (const std::int32_t read = ReadSetup(after); read < 0) {
        return out.Fail(read, Subject::kService, "read the installed driver back");
    }
    const Json changes = before.installed ? Changes(before, after) : Json::array();
    Json facts = {{"startType", after.startType},
                  {"altitude", after.altitude},
                  {"allowUnload", after.allowUnload},
                  {"reinstalled", before.installed},
                  {"changed", changes}};
    const std::wstring file = zop::ZopResolveImagePath(after.imagePath);
    std::vector<std::string> hints;
    ReportKeptFile(options.source, file, facts, hints);
    ReportSignature(file, facts, hints);
    if (!before.installed) hints.emplace_back("Start it with \"zoctl driver start\".");
    const std::string settings =
        changes.empty() ? "Its settings stay as they were." : "Changed: " + ChangesText(changes) + ".";
    const int exitCode = out.Done(
        before.installed ? "The driver was installed already. " + settings : "The driver is installed.", facts);
    for (const std::string& hint : hints)
        out.Hint(hint);
    return exitCode;
}

}  // namespace

void AddInstall(Tool& tool, CLI::App& group) {
    const auto options = std::make_shared<InstallOptions>();
    CLI::App& install = AddInstallerCommand(
        tool, group,
        {"install",
         "Copy the driver's file into the system and register its service and filter; repeated, keep the settings",
         "driver install C:\\Suite\\ZoProtectorDriver.sys --start auto --allow-unload"},
        [options](Output& out) { return Install(out, *options); });
    install.add_option("source", options->source, "The driver's file; ZoProtectorDriver.sys next to zoctl if left out");
    install.add_option("--start", options->startType, "When the driver starts; demand at first, later as it was")
        ->check(CLI::IsMember(kStartTypes));
    install.add_option("--altitude", options->altitude, "The filter's altitude; 385100 at first, later as it was")
        ->check(CLI::Validator(
            [](std::string& given) {
                return IsAltitude(given) ? std::string() : "\"" + given + "\" is not a decimal number such as 385100.5";
            },
            "NUMBER"));
    CLI::Option* const allow =
        install.add_flag("--allow-unload", options->allowUnload, "Let the driver be stopped without a restart");
    install.add_flag("--no-allow-unload", options->forbidUnload, "Do not let it be stopped any more")->excludes(allow);
}

}  // namespace zoctl
