#include <memory>
#include <optional>

#include "channel.h"
#include "command_shapes.h"
#include "format.h"
#include "rules_commands.h"
#include "vocabulary_option.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct PolicyOptions {
    std::optional<std::uint32_t> mode;
    std::optional<std::uint32_t> minLevel;
};

// "2", or "2 (microsoft)" with the number's name.
std::string NumberText(std::uint8_t number, const NumberNames& names) {
    const std::string name = NameOf(names, number);
    return name.empty() ? zo::Format("{}", number) : zo::Format("{} ({})", number, name);
}

// Shows the policy, or changes the numbers given and leaves the other as it is.
int ShowOrSetPolicy(Output& out, const PolicyOptions& options, const Vocabulary& vocabulary) {
    ZopSignaturePolicy policy{};
    std::int32_t status = ZoProtector_GetSignaturePolicy(&policy);
    if (status < 0) return out.Fail(status, Subject::kAny, "read the signature policy");
    const bool change = options.mode || options.minLevel;
    if (change) {
        if (options.mode) policy.mode = static_cast<std::uint8_t>(*options.mode);
        if (options.minLevel) policy.minLevel = static_cast<std::uint8_t>(*options.minLevel);
        status = ZoProtector_SetSignaturePolicy(&policy);
        if (status < 0) return out.Fail(status, Subject::kAny, "set the signature policy");
    }
    Json facts = {{"mode", policy.mode}, {"minLevel", policy.minLevel}, {"changed", change}};
    const auto addName = [&facts](const char* member, const std::string& name) {
        if (!name.empty()) facts[member] = name;
    };
    addName("modeName", NameOf(vocabulary.modes, policy.mode));
    addName("minLevelName", NameOf(vocabulary.minLevels, policy.minLevel));
    return out.Done(
        zo::Format("Signature policy{}: mode {}, minimum level {}.", change ? " set" : "",
                   NumberText(policy.mode, vocabulary.modes), NumberText(policy.minLevel, vocabulary.minLevels)),
        facts);
}

using SignatureCall = std::int32_t (*)(std::uint32_t, std::uint32_t*, std::uint32_t*);

void AddVerdict(Tool& tool, CLI::App& group, const CommandText& text, SignatureCall call) {
    const auto pid = std::make_shared<std::uint32_t>();
    tool.AddCommand(group, text, WithDriver([pid, call](Output& out) {
                        std::uint32_t first = 0;
                        std::uint32_t second = 0;
                        const std::int32_t status = call(*pid, &first, &second);
                        Json facts = {{"pid", *pid}};
                        if (status >= 0) facts.update({{"first", first != 0}, {"second", second != 0}});
                        return out.Report(status, Subject::kProcess, zo::Format("judge process {}", *pid),
                                          zo::Format("Process {}: first flag {}, second flag {}.", *pid, first, second),
                                          facts);
                    }))
        .add_option("pid", *pid, "Process id")
        ->required();
}

void AddOverride(Tool& tool, CLI::App& group, const CommandText& text, std::int32_t (*call)(std::uint32_t),
                 const char* what, const char* done) {
    const auto pid = std::make_shared<std::uint32_t>();
    tool.AddCommand(group, text, WithDriver([=](Output& out) {
                        return out.Report(call(*pid), Subject::kOverride, zo::Format("{} process {}", what, *pid),
                                          zo::Format("{} process {}.", done, *pid), {{"pid", *pid}});
                    }))
        .add_option("pid", *pid, "Process id")
        ->required();
}

}  // namespace

void RegisterSignature(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "signature", "The driver's code-signature policy and its exceptions");
    const auto options = std::make_shared<PolicyOptions>();
    VocabularyOption names;
    CLI::App& policy =
        tool.AddCommand(group,
                        {"policy", "Show the policy, or set the values given; the driver defines what they mean",
                         "signature policy\nsignature policy --mode 1 --min-level 2"},
                        names.WithNames([options](Output& out, const Vocabulary& vocabulary) {
                            return ShowOrSetPolicy(out, *options, vocabulary);
                        }));
    names.AddTo(policy);
    policy.add_option("--mode", options->mode, "0 to 255")->check(CLI::Range(0, 255));
    policy.add_option("--min-level", options->minLevel, "0 to 255")->check(CLI::Range(0, 255));
    AddVerdict(tool, group, {"query", "Show the driver's verdict on a process", "signature query 4711"},
               ZoProtector_QueryPidSignature);
    AddVerdict(tool, group, {"refresh", "Have the driver judge a process again", "signature refresh 4711"},
               ZoProtector_RefreshPidSignature);
    CLI::App& overrides =
        tool.AddGroup(group, "override", "Processes exempt from the policy (the list cannot be read back)");
    AddOverride(tool, overrides, {"add", "Exempt a process", "signature override add 4711"},
                ZoProtector_AddSignatureOverride, "exempt", "Exempt:");
    AddOverride(tool, overrides, {"remove", "No longer exempt a process", "signature override remove 4711"},
                ZoProtector_RemoveSignatureOverride, "remove the exemption of", "No longer exempt:");
    AddPlainCommand(tool, overrides, {"clear", "Remove all exemptions", "signature override clear"},
                    ZoProtector_ClearAllSignatureOverrides, "remove the exemptions", "No process is exempt now.");
}

}  // namespace zoctl
