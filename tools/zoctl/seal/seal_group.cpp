// "zoctl sign" and "zoctl verify".

#include <windows.h>

#include <filesystem>

#include "facts.h"
#include "format.h"
#include "manifest_reader.h"
#include "open_folders.h"
#include "progress.h"
#include "seal_commands.h"
#include "seal_paths.h"
#include "signer_session.h"
#include "text.h"
#include "trial_manifest.h"
#include "zosigner.h"

namespace zoctl {

namespace {

struct SignCommand {
    SealPaths paths;
    bool sealNone = false;
    std::vector<std::string> open;  // folders left open, relative to the root
    bool strict = false;
    bool force = false;
    bool dryRun = false;
};

struct VerifyCommand {
    SealPaths paths;
    bool embedded = false;
};

// Whether the file or folder is the tree or lies below it, links resolved.
bool IsInside(const std::wstring& path, const std::wstring& tree) {
    std::error_code error;
    std::filesystem::path above = std::filesystem::absolute(path, error);
    for (; !std::filesystem::equivalent(above, tree, error); above = above.parent_path()) {
        if (above == above.parent_path()) return false;
    }
    return true;
}

// What is shipped with what it seals can be used by anybody to seal something else.
void WarnOfKeyInside(Output& out, const SealPaths& paths) {
    const std::wstring root = zo::WideFromUtf8(paths.root);
    const bool isFile = !paths.keyFile.empty();
    if (paths.keyFile == kStandardInput) return;
    if (!IsInside(zo::WideFromUtf8(isFile ? paths.keyFile : paths.keystore), root)) return;
    out.Hint(zo::Format("Warning: the {} is inside the folder, so the private key is shipped with what it signs.",
                        isFile ? "key file" : "keystore"));
}

// Ends the command when a folder that is to be left open does not exist.
Ended FindOpenFolders(Output& out, const SignCommand& command, OpenFolders& open) {
    for (const std::string& name : command.open) {
        if (open.Add(zo::WideFromUtf8(command.paths.root), zo::WideFromUtf8(name))) continue;
        return out.Refuse(
            kExitUsage,
            zo::Format("{} has no folder {} that could be left open.", Quote(command.paths.root), Quote(name)),
            "Nothing was signed. Name folders inside the folder to sign; links are not signed in any case.");
    }
    return std::nullopt;
}

// What is in the folder, but not in its manifest.
struct Uncovered {
    std::size_t unreadable;
    std::size_t unlistable;
    std::size_t links;  // in sealed folders, where verifying reports them as extra

    [[nodiscard]] bool Any() const { return unreadable + unlistable + links != 0; }
};

Uncovered FindUncovered(const SignCommand& command, const SignerSession& session, const OpenFolders& open) {
    Uncovered uncovered{session.Count("unreadable"), session.Count("unlistable"), 0};
    for (const SignerFinding& finding : session.Findings()) {
        const bool isLink = std::string_view(finding.kind) == kSkippedLink;
        if (isLink && !command.sealNone && !open.HoldsItem(finding.path)) ++uncovered.links;
    }
    return uncovered;
}

Facts SignedFacts(const SignCommand& command, const OpenFolders& open, const Uncovered& uncovered,
                  const ZoSignerSignResult& result) {
    Facts facts;
    facts.Add("manifest", "manifest", command.paths.manifest);
    facts.Add(nullptr, "dryRun", command.dryRun);
    facts.Add("entries", "entries", result.entries);
    facts.Add("directories", "directories", result.directories);
    facts.Add("sealed", "sealedDirectories", result.sealedDirectories);
    facts.Add(nullptr, "open", open.Names());
    facts.Add("not readable", "unreadable", uncovered.unreadable);
    facts.Add("not listable", "unlistable", uncovered.unlistable);
    facts.Add("links in sealed folders", "linksInSealedFolders", uncovered.links);
    facts.Add("thumbprint", "thumbprint", HexJson(result.thumbprint));
    return facts;
}

void ShowHints(Output& out, const SignCommand& command, const OpenFolders& open, const Uncovered& uncovered) {
    if (uncovered.Any()) out.Hint("The seal does not cover the findings that are listed above.");
    if (uncovered.links != 0) out.Hint("Links in sealed folders count as extra when the folder is verified.");
    for (const std::string& name : open.NotAsked())
        out.Hint(zo::Format("{} was not left open: it is behind a link, and links are not signed.", Quote(name)));
    WarnOfKeyInside(out, command.paths);
}

// items: what a dry run found, which would be listed.
int ReportSigned(Output& out, const SignCommand& command, const SignerSession& session, const OpenFolders& open,
                 const ZoSignerSignResult& result, const Records& items) {
    const Uncovered uncovered = FindUncovered(command, session, open);
    const Facts facts = SignedFacts(command, open, uncovered, result);
    session.ShowFindings();
    out.Table(facts.Sheet({command.dryRun ? "DRY RUN" : "SIGNED", ""}));
    Json members = session.AddedTo(facts.Members());
    if (command.dryRun) items.PutInto(members);
    const std::string sentence = command.dryRun ? "Dry run: nothing was written" : "Signed";
    const int exitCode =
        uncovered.Any() && command.strict
            ? out.Found(kExitUnreadable,
                        sentence + (command.dryRun ? "; the seal would not cover everything (--strict)."
                                                   : ", but the seal does not cover everything (--strict)."),
                        members)
            : out.Done(sentence + ".", members);
    ShowHints(out, command, open, uncovered);
    return exitCode;
}

// Shows what the trial manifest lists, and takes the manifest itself out of the count.
Ended ShowTrial(Output& out, const SignCommand& command, const TrialManifest& trial, ZoSignerSignResult& result,
                Records& items) {
    ManifestListing listing;
    if (const Ended ended = trial.Read(out, command.paths.root, command.paths.manifest, listing)) return ended;
    result.entries = static_cast<std::uint32_t>(listing.tree.entries.size());
    TextTable table({"kind", "size", "path"});
    for (const ManifestItem& item : SortedItems(listing.tree)) {
        table.Add({std::string(item.kind), item.IsFile() ? std::to_string(item.size) : "", std::string(item.path)});
        items.Add(item.ToJson());
    }
    out.Table(table);
    return std::nullopt;
}

int Sign(Output& out, const SignCommand& command) {
    SignerSession session(out, command.paths, SealVerb::kSign);
    ZoSignerSignOptions options{};
    if (const Ended ended = session.Fill(options)) return *ended;
    if (const Ended ended = CheckReplaceable(out, command.paths.manifest, command.force)) return *ended;
    OpenFolders open;
    if (const Ended ended = FindOpenFolders(out, command, open)) return *ended;
    TrialManifest trial;
    if (command.dryRun) {
        if (const Ended ended = trial.Create(out)) return *ended;
        options.manifest = trial.Path().c_str();
    }
    options.sealMode = command.sealNone ? ZOSIG_SEAL_NONE : open.Empty() ? ZOSIG_SEAL_ALL : ZOSIG_SEAL_ASK;
    options.sealCallback = OpenFolders::Ask;
    options.sealContext = &open;
    ZoSignerSignResult result{};
    std::int32_t status = 0;
    try {
        const Progress progress(out, "signing", {[&session] { return session.Counts(); }});
        status = ZoSigner_SignDirectory(&options, &result);
    } catch (const std::filesystem::filesystem_error& error) {
        return RefuseFolder(out, error, session.AddedTo(Json::object()));
    }
    if (status < 0) return session.Fail(status);
    Records items(out, "items");
    if (command.dryRun) {
        if (const Ended ended = ShowTrial(out, command, trial, result, items)) return *ended;
    }
    return ReportSigned(out, command, session, open, result, items);
}

int ReportVerified(Output& out, const SignerSession& session, const ZoSignerVerifyResult& result) {
    Facts counts;
    counts.Add("ok", "ok", result.ok);
    counts.Add("bad", "bad", result.bad);
    counts.Add("missing", "missing", result.missing);
    counts.Add("extra", "extra", result.extra);
    counts.Add("directories", "directories", result.directories);
    session.ShowFindings();
    out.Table(counts.Line());
    const Json facts = session.AddedTo({{"counts", counts.Members()}, {"thumbprint", HexJson(result.thumbprint)}});
    // A sealed folder that cannot be listed may hold anything, whatever else was found.
    if (const std::size_t unseen = session.Count("unreadable"); unseen != 0) {
        return out.Found(
            kExitUnreadable, zo::Format("{} could not be listed.", Counted(unseen, "sealed folder")), facts,
            "Check that you have access to these folders and that no other program uses them, then verify again.");
    }
    const int bits = (result.extra != 0 ? kVerifyExtra : 0) | (result.missing != 0 ? kVerifyMissing : 0) |
                     (result.bad != 0 ? kVerifyBad : 0);
    if (bits == 0) return out.Done("The folder is as it was when it was signed.", facts);
    return out.Found(kExitVerify + bits, "The folder differs from its manifest.", facts);
}

int Verify(Output& out, const VerifyCommand& command) {
    SignerSession session(out, command.paths, SealVerb::kVerify);
    ZoSignerVerifyOptions options{};
    if (const Ended ended = session.Fill(options)) return *ended;
    ZoSignerVerifyResult result{};
    std::int32_t status = 0;
    {
        const Progress progress(
            out, "verifying",
            {[&session] { return session.Counts(); }, [&command] { return ListedBytes(command.paths.manifest); }});
        status = command.embedded ? ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result)
                                  : ZoSigner_VerifyDirectory(&options, &result);
    }
    const bool checked = status >= 0 || status == ZOSIG_E_VERIFY_FAILED || session.Count("unreadable") != 0;
    return checked ? ReportVerified(out, session, result) : session.Fail(status);
}

// Exactly one of the ways to name a key.
CLI::Option_group& AddKeyOptions(CLI::App& command, SealPaths& paths, const char* keyFile) {
    CLI::Option_group& group = *command.add_option_group("key");
    group.add_option("--keystore,-k", paths.keystore, "The keystore folder");
    group.add_option("--key", paths.keyFile, keyFile);
    group.require_option(1);
    return group;
}

void AddPathOptions(CLI::App& command, SealPaths& paths) {
    command.add_option("folder", paths.root, "The folder")->required();
    command.add_option("--manifest,-m", paths.manifest, "The manifest file")->required();
}

}  // namespace

void RegisterSeal(CLI::App& root, Tool& tool) {
    const auto signCommand = std::make_shared<SignCommand>();
    CLI::App& sign =
        tool.AddCommand(root,
                        {"sign", "Seal a folder with a signed manifest",
                         "sign C:\\Suite --manifest C:\\Suite\\suite.zosig --keystore D:\\Keys\\suite --open logs"},
                        [signCommand](Output& out) { return Sign(out, *signCommand); });
    AddPathOptions(sign, signCommand->paths);
    AddKeyOptions(sign, signCommand->paths, "A private key file instead of a keystore; - is standard input");
    sign.add_flag("--seal-none", signCommand->sealNone, "Allow new items in every folder later");
    sign.add_option("--open", signCommand->open,
                    "A folder of the tree that may get new items later, with all below it; repeatable")
        ->allow_extra_args(false)  // the next word is the folder to sign
        ->excludes(sign.get_option("--seal-none"));
    sign.add_flag("--strict", signCommand->strict, "Exit with 34 when the seal does not cover everything");
    sign.add_flag("--force", signCommand->force, "Replace an existing file that is not a manifest");
    sign.add_flag("--dry-run", signCommand->dryRun, "Show what would be listed, and write nothing");
    tool.AllowJsonLines(sign);

    const auto verifyCommand = std::make_shared<VerifyCommand>();
    CLI::App& verify =
        tool.AddCommand(root,
                        {"verify", "Check a folder against its manifest",
                         "verify C:\\Suite --manifest C:\\Suite\\suite.zosig --keystore D:\\Keys\\suite"},
                        [verifyCommand](Output& out) { return Verify(out, *verifyCommand); });
    AddPathOptions(verify, verifyCommand->paths);
    AddKeyOptions(verify, verifyCommand->paths,
                  "A public or private key file instead of a keystore; - is standard input")
        .add_flag("--embedded-key", verifyCommand->embedded, "The key that the library was built with");
    tool.AllowJsonLines(verify);
}

}  // namespace zoctl
