// Single commands: stats, copy-directory, hardware-id, force-crash.

#include <cstddef>
#include <memory>

#include "channel.h"
#include "console.h"
#include "driver_commands.h"
#include "facts.h"
#include "format.h"
#include "text.h"
#include "vocabulary_option.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

int Stats(Output& out, const Vocabulary& vocabulary) {
    ZopStats stats{};
    const std::int32_t status = ZoProtector_GetStats(&stats);
    if (status < 0) return out.Fail(status, Subject::kAny, "read the counters");
    constexpr std::uint32_t kFirstVersionWithBypass = 3;
    const bool hasBypass = stats.version >= kFirstVersionWithBypass;
    Facts facts;
    facts.Add(nullptr, "version", stats.version);
    facts.Add("unsigned bypass attempts", "unsignedBypassAttempts",
              hasBypass ? Json(stats.unsignedBypassAttempts) : Json(nullptr),
              hasBypass ? std::string() : "not known to this driver");
    Json counters = Json::array();
    const auto add = [&](std::size_t offset, std::uint32_t value) {
        const auto name = vocabulary.counters.find(offset);
        const bool named = name != vocabulary.counters.end();
        facts.Add(named ? name->second.c_str() : zo::Format("at byte {}", offset).c_str(), nullptr, value);
        counters.push_back({{"offset", offset}, {"value", value}});
        if (named) counters.back()["name"] = name->second;
    };
    for (std::size_t i = 0; i < std::size(stats.counters); ++i)
        add(offsetof(ZopStats, counters) + 4 * i, stats.counters[i]);
    for (std::size_t i = 0; i < std::size(stats.moreCounters); ++i)
        add(offsetof(ZopStats, moreCounters) + 4 * i, stats.moreCounters[i]);
    facts.Add(nullptr, "counters", std::move(counters));
    out.Text(zo::Format("Layout version {}; counters without a name are known to the driver only.\n", stats.version));
    out.Table(facts.Sheet({"COUNTER", "VALUE"}));
    return out.Done("", facts.Members());
}

struct CopyOptions {
    std::string source;
    std::string destination;
    bool option1 = false;
    bool option2 = false;
};

int CopyFolder(Output& out, const CopyOptions& options) {
    std::uint32_t files = 0;
    std::uint32_t folders = 0;
    std::uint32_t skipped = 0;
    const std::int32_t status = ZoProtector_CopyDirectory(zo::WideFromUtf8(options.source).c_str(),
                                                          zo::WideFromUtf8(options.destination).c_str(),
                                                          options.option1, options.option2, &files, &folders, &skipped);
    // The driver's counts hold for a copy that failed half-way too.
    const Json facts = {{"source", options.source},
                        {"destination", options.destination},
                        {"filesCopied", files},
                        {"dirsCopied", folders},
                        {"skipped", skipped}};
    const std::string counts =
        zo::Format("{} and {} copied, {} skipped", Counted(files, "file"), Counted(folders, "folder"), skipped);
    return out.Report(status, Subject::kCopy, "copy " + Quote(options.source) + " (" + counts + ")", counts + ".",
                      facts);
}

int HardwareId(Output& out) {
    wchar_t text[65] = {};
    const std::int32_t status = ZoProtector_GetHardwareId(text, static_cast<std::uint32_t>(std::size(text)));
    const std::string id = zo::Utf8FromWide(text);
    return out.Report(status, Subject::kAny, "identify this machine", id,
                      status < 0 ? Json::object() : Json{{"hardwareId", id}});
}

int ForceCrash(Output& out, bool yes) {
    if (!yes) {
        if (out.Machine() || !InputIsTerminal()) {
            return out.Refuse(kExitUsage,
                              "This crashes the system on purpose, and there is no terminal on which to ask first.",
                              "Add --yes to go ahead without being asked.");
        }
        static_cast<void>(
            Write(Stream::kError, "This crashes the system now, and unsaved work is lost. Type \"crash\": "));
        if (ReadLine() != "crash")
            return out.Refuse(kExitCancelled, "Nothing was done.", "Type \"crash\" to go ahead.");
    }
    const Channel channel;
    if (const Ended ended = channel.Check(out)) return *ended;
    return out.Report(ZoProtector_ForceCrash(), Subject::kAny, "crash the system", "The driver accepted the command.");
}

}  // namespace

void RegisterMaintenance(CLI::App& root, Tool& tool) {
    VocabularyOption names;
    CLI::App& stats = tool.AddCommand(
        root, {"stats", "Show the driver's counters", "stats --vocabulary C:\\Suite\\driver.json\nstats --json"},
        names.WithNames(Stats));
    names.AddTo(stats);

    const auto copy = std::make_shared<CopyOptions>();
    CLI::App& copyCommand =
        tool.AddCommand(root,
                        {"copy-directory", "Have the driver copy a folder that programs are not allowed to read",
                         "copy-directory C:\\Windows\\Minidump C:\\Temp\\dumps --option1 --option2"},
                        WithDriver([copy](Output& out) { return CopyFolder(out, *copy); }));
    copyCommand.add_option("source", copy->source)->required();
    copyCommand.add_option("destination", copy->destination)->required();
    copyCommand.add_flag("--option1", copy->option1, "The driver's first switch");
    copyCommand.add_flag("--option2", copy->option2, "The driver's second switch");

    tool.AddCommand(root, {"hardware-id", "Show this machine's identifier; needs no driver", "hardware-id"},
                    HardwareId);

    const auto yes = std::make_shared<bool>(false);
    tool.AddCommand(root,
                    {"force-crash", "Have the driver crash the system on purpose; asks first", "force-crash --yes"},
                    [yes](Output& out) { return ForceCrash(out, *yes); })
        .add_flag("--yes", *yes, "Do not ask");
}

}  // namespace zoctl
