#include <array>
#include <memory>

#include "channel.h"
#include "files.h"
#include "format.h"
#include "input_file.h"
#include "installer_command.h"
#include "kept_rules.h"
#include "text.h"
#include "upgrade_commands.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct UpgradeOptions {
    std::string file;
    bool restart = false;
    bool keepRules = false;
    std::string rulesFile;
};

// One upgrade: how far it came is in every document that it can end with.
class Upgrade {
  public:
    Upgrade(Output& out, const UpgradeOptions& options) : out_(out), options_(options) {}

    int Run();

  private:
    [[nodiscard]] Ended FindRunning();
    [[nodiscard]] Ended CheckNewFile();
    [[nodiscard]] Ended ReplaceFile();
    [[nodiscard]] bool RunningIsOlder() const;
    int EndWithoutRestart();
    [[nodiscard]] Ended Restart();
    [[nodiscard]] Json Document(const Json& facts, int exitCode);

    Output& out_;
    const UpgradeOptions& options_;
    KeptRules kept_;
    bool running_ = false;
    bool upgraded_ = false;
    bool replacedByDriver_ = false;
    bool restarted_ = false;
    bool restartRequired_ = false;
    bool applying_ = false;
};

int Upgrade::Run() {
    out_.ReshapeFacts([this](const Json& facts, int exitCode) { return Document(facts, exitCode); });
    if (const Ended ended = FindRunning()) return *ended;
    if (const Ended ended = CheckNewFile()) return *ended;
    if (options_.keepRules && running_) {
        if (const Ended ended = kept_.Capture(out_, options_.rulesFile)) return *ended;
    }
    if (const Ended ended = ReplaceFile()) return *ended;
    restartRequired_ = running_ && RunningIsOlder();
    if (!options_.restart || !restartRequired_) return EndWithoutRestart();
    if (const Ended ended = Restart()) return *ended;
    if (!kept_.Captured()) {
        const int exitCode = out_.Done(upgraded_ ? "The driver's file was replaced, and the driver was restarted."
                                                 : "The driver was restarted with the file that was replaced before.");
        out_.Hint("The restarted driver holds no rules; bring them back with \"zoctl rules apply FILE\".");
        return exitCode;
    }
    applying_ = true;
    return kept_.PutBack(out_);
}

// Without a service the library would take the file next to zoctl for the installed one.
Ended Upgrade::FindRunning() {
    ZoProtectorDriverStatus record{};
    std::int32_t status = ZoProtector_QueryDriverStatus(&record);
    if (status >= 0 && record.state == ZOP_DRIVER_NOT_INSTALLED) status = ZOP_E_DRIVER_NOT_FOUND;
    if (status < 0) return out_.Fail(status, Subject::kService, "upgrade the driver to " + Quote(options_.file));
    running_ = record.state == ZOP_DRIVER_RUNNING;
    return std::nullopt;
}

// The library has one status for a new file that is missing and for an installed one that is.
Ended Upgrade::CheckNewFile() {
    std::uint32_t error = 0;
    if (zo::Exists(zo::WideFromUtf8(options_.file).c_str(), error)) return RefuseFolderAsFile(out_, options_.file);
    if (error) return std::nullopt;  // the upgrade says why
    return out_.Refuse(kExitNoDriver, "The file " + Quote(options_.file) + " does not exist.",
                       "Check the path of the new driver's file; nothing was changed.");
}

Ended Upgrade::ReplaceFile() {
    std::uint32_t upgraded = 0;
    std::uint32_t replacedByDriver = 0;
    const std::int32_t status =
        ZoProtector_UpgradeDriver(zo::WideFromUtf8(options_.file).c_str(), &upgraded, &replacedByDriver);
    ZoProtector_Uninitialize();  // the upgrade may have opened the channel
    upgraded_ = upgraded != 0;
    replacedByDriver_ = replacedByDriver != 0;
    if (status >= 0) return std::nullopt;
    return out_.Fail(status, Subject::kUpgrade, "upgrade the driver to " + Quote(options_.file));
}

// A driver that was upgraded earlier and not restarted since is older than its file, too. One that cannot be asked is
// older when its file was replaced just now.
bool Upgrade::RunningIsOlder() const {
    ZoProtectorDriverStatus record{};
    std::array<std::uint32_t, 3> version = {};
    const bool known = ZoProtector_QueryDriverStatus(&record) >= 0 && ZoProtector_Initialize() >= 0 &&
                       ZoProtector_GetVersion(&version[0], &version[1], &version[2]) >= 0;
    ZoProtector_Uninitialize();
    if (!known) return upgraded_;
    return version < std::array{record.fileVersionMajor, record.fileVersionMinor, record.fileVersionBuild};
}

int Upgrade::EndWithoutRestart() {
    const int exitCode = out_.Done(
        !upgraded_          ? "Nothing was replaced: the installed driver is as new as the file, or newer."
        : replacedByDriver_ ? "The driver's file was replaced, by the driver itself because the file was locked."
                            : "The driver's file was replaced.");
    if (restartRequired_) {
        out_.Hint("The running driver keeps its old image; the new file is loaded the next time the driver starts.");
    }
    return exitCode;
}

Ended Upgrade::Restart() {
    if (kept_.Captured()) {
        if (const Ended ended = kept_.Save(out_)) return ended;
    }
    if (const std::int32_t status = ZoProtector_StopDriver(); status < 0) {
        if (kept_.Captured()) kept_.RemoveFile();  // the old driver still holds them
        return out_.Fail(status, Subject::kService,
                         "stop the driver; the new file is in place, the old driver runs on and keeps its rules");
    }
    if (const std::int32_t status = ZoProtector_StartDriver(); status < 0) {
        return out_.Fail(status, Subject::kService, "start the new driver; no driver is running");
    }
    restarted_ = true;
    restartRequired_ = false;
    return std::nullopt;
}

// The facts of a document, and the hints that belong to all its endings. What "rules apply" reports goes below "rules".
// The saved rules are removed once they are proven to be back.
Json Upgrade::Document(const Json& facts, int exitCode) {
    if (applying_ && exitCode == kExitDone) kept_.RemoveFile();
    if (applying_ && !kept_.NotKept().empty()) {
        std::string parts;
        for (const std::string& part : kept_.NotKept())
            parts += (parts.empty() ? "" : ", ") + part;
        out_.Hint("Not kept, because the old driver could not be asked for it: " + parts +
                  ". A rule file that has it can be given with --rules.");
    }
    if (!kept_.File().empty()) {
        out_.Hint("The rules of the old driver are in " + Quote(kept_.File()) +
                  "; \"zoctl rules apply\" brings them back.");
    }
    Json document = {{"upgraded", upgraded_},
                     {"replacedByDriver", replacedByDriver_},
                     {"restarted", restarted_},
                     {"restartRequired", restartRequired_}};
    if (kept_.Captured()) document["notKept"] = kept_.NotKept();
    document["rulesFile"] = TextOrNull(kept_.File());
    if (applying_) {
        document["rules"] = facts;
        document["rules"].erase("file");
    } else {
        document.update(facts);
    }
    return document;
}

}  // namespace

void RegisterUpgrade(CLI::App& root, Tool& tool) {
    const auto options = std::make_shared<UpgradeOptions>();
    CLI::App& upgrade = AddInstallerCommand(
        tool, *root.get_subcommand("driver"),
        {"upgrade", "Replace the installed driver's file with a newer one, even while it is in use",
         "driver upgrade C:\\Download\\ZoProtectorDriver.sys\n"
         "driver upgrade C:\\Download\\ZoProtectorDriver.sys --restart --keep-rules --rules C:\\Suite\\rules.json"},
        [options](Output& out) { return Upgrade(out, *options).Run(); });
    upgrade.add_option("file", options->file, "The new driver's file")->required();
    CLI::Option* const restart = upgrade.add_flag(
        "--restart", options->restart, "Restart a running driver that is older than its file; it loses its rules");
    CLI::Option* const keep =
        upgrade.add_flag("--keep-rules", options->keepRules, "Put the rules back after the restart, and prove it");
    keep->needs(restart);
    upgrade
        .add_option("--rules", options->rulesFile,
                    "A rule file with what no driver can be asked for: ignore lists, overrides, file and DLL switch")
        ->needs(keep);
}

}  // namespace zoctl
