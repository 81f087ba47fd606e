// "zoctl sign" and "zoctl verify".

#include <windows.h>

#include <filesystem>

#include "console.h"
#include "format.h"
#include "manifest_reader.h"
#include "open_folders.h"
#include "progress.h"
#include "seal_commands.h"
#include "signer_session.h"
#include "text.h"
#include "tree_bytes.h"
#include "zosigner.h"

namespace zoctl {

namespace {

struct SignCommand {
    SealPaths paths;
    bool sealNone = false;
    std::vector<std::string> open;  // folders left open, relative to the root
    bool strict = false;
};

struct VerifyCommand {
    SealPaths paths;
    bool embedded = false;
};

// Whether the file or folder is the tree or lies below it, links resolved.
bool IsInside(const std::wstring& path, const std::wstring& tree) {
    std::error_code error;
    std::filesystem::path above = std::filesystem::absolute(path, error);
    for (; !error && !above.empty(); above = above.parent_path()) {
        if (std::filesystem::equivalent(above, tree, error)) return true;
        error.clear();  // what does not exist yet is equivalent to nothing
        if (above == above.parent_path()) break;
    }
    return false;
}

// What is shipped with what it seals can be used by anybody to seal something else.
void WarnOfKeyInside(Output& out, const SealPaths& paths) {
    const std::wstring root = zo::WideFromUtf8(paths.root);
    const bool isFile = !paths.keyFile.empty();
    if (!IsInside(zo::WideFromUtf8(isFile ? paths.keyFile : paths.keystore), root)) return;
    out.Hint(zo::Format("Warning: the {} lies inside the folder, so the private key is shipped with what it seals.",
                        isFile ? "key file" : "keystore"));
}

// False when one of the folders to be left open is none; then says so and sets the exit code.
bool FindOpenFolders(Output& out, const SignCommand& command, OpenFolders& open, int& exitCode) {
    for (const std::string& name : command.open) {
        if (open.Add(zo::WideFromUtf8(command.paths.root), zo::WideFromUtf8(name))) continue;
        exitCode = out.Refuse(
            kExitUsage,
            zo::Format("{} has no folder {} that could be left open.", Quote(command.paths.root), Quote(name)),
            "Nothing was signed. Name folders below the sealed one; links are not sealed anyway.");
        return false;
    }
    return true;
}

Json Merge(Json facts, const Json& more) {
    facts.update(more);
    return facts;
}

int ReportSigned(Output& out, const SignCommand& command, const SignerSession& session, const OpenFolders& open,
                 const ZoSignerSignResult& result) {
    const std::size_t unreadable = session.Count("unreadable");
    session.ShowFindings();
    TextTable table({"entries", "directories", "sealed", "not read"});
    table.Add({std::to_string(result.entries), std::to_string(result.directories),
               std::to_string(result.sealedDirectories), std::to_string(unreadable)});
    out.Table(table);
    for (const std::string& name : open.NotAsked())
        out.Hint(zo::Format("{} was not left open: it lies behind a link, and links are not sealed.", Quote(name)));
    const Json facts = Merge({{"manifest", command.paths.manifest},
                              {"entries", result.entries},
                              {"directories", result.directories},
                              {"sealedDirectories", result.sealedDirectories},
                              {"open", open.Names()},
                              {"unreadable", unreadable},
                              {"thumbprint", HexJson(result.thumbprint)}},
                             session.Facts());
    if (unreadable != 0 && command.strict) {
        return out.Found(kExitUnreadable, "Signed, but not everything could be read (--strict).", facts);
    }
    if (unreadable != 0) out.Hint("Not everything could be read; what is listed above is not covered by the seal.");
    return out.Done("Signed.", facts);
}

int Sign(Output& out, const SignCommand& command) {
    OpenFolders open;
    if (int exitCode = 0; !FindOpenFolders(out, command, open, exitCode)) return exitCode;
    WarnOfKeyInside(out, command.paths);
    SignerSession session(out, command.paths);
    ZoSignerSignOptions options{};
    if (int exitCode = 0; !session.Fill(options, exitCode)) return exitCode;
    options.sealMode = command.sealNone ? ZOSIG_SEAL_NONE : open.Empty() ? ZOSIG_SEAL_ALL : ZOSIG_SEAL_ASK;
    options.sealCallback = OpenFolders::Ask;
    options.sealContext = &open;
    ZoSignerSignResult result{};
    std::int32_t status = 0;
    try {
        const auto treeBytes = [&options](const std::function<bool()>& ended) {
            return TreeBytes(options.root, ended);
        };
        const Progress progress(out, "signing", {treeBytes, [&session] { return session.Counts(); }});
        status = ZoSigner_SignDirectory(&options, &result);
    } catch (const std::filesystem::filesystem_error& error) {
        return session.Fail(error, "sign");
    }
    return status >= 0 ? ReportSigned(out, command, session, open, result) : session.Fail(status, "sign");
}

int ReportVerified(Output& out, const SignerSession& session, const ZoSignerVerifyResult& result) {
    session.ShowFindings();
    TextTable table({"ok", "bad", "missing", "extra", "directories"});
    table.Add({std::to_string(result.ok), std::to_string(result.bad), std::to_string(result.missing),
               std::to_string(result.extra), std::to_string(result.directories)});
    out.Table(table);
    const Json facts = Merge({{"counts",
                               {{"ok", result.ok},
                                {"bad", result.bad},
                                {"missing", result.missing},
                                {"extra", result.extra},
                                {"directories", result.directories}}},
                              {"thumbprint", HexJson(result.thumbprint)}},
                             session.Facts());
    const int bits = (result.extra != 0 ? kVerifyExtra : 0) | (result.missing != 0 ? kVerifyMissing : 0) |
                     (result.bad != 0 ? kVerifyBad : 0);
    if (bits == 0) return out.Done("The folder is as it was sealed.", facts);
    return out.Found(kExitVerify + bits, "The folder differs from its manifest.", facts);
}

int Verify(Output& out, const VerifyCommand& command) {
    SignerSession session(out, command.paths);
    ZoSignerVerifyOptions options{};
    if (int exitCode = 0; !session.Fill(options, exitCode)) return exitCode;
    ZoSignerVerifyResult result{};
    std::int32_t status = 0;
    try {
        const auto listedBytes = [&command](const std::function<bool()>&) {
            return ListedBytes(command.paths.manifest);
        };
        const Progress progress(out, "verifying", {listedBytes, [&session] { return session.Counts(); }});
        status = command.embedded ? ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result)
                                  : ZoSigner_VerifyDirectory(&options, &result);
    } catch (const std::filesystem::filesystem_error& error) {
        // A sealed folder that cannot be listed may hold anything: that is no seal that holds.
        session.ShowFindings();
        return session.Fail(error, "verify");
    }
    const bool checked = status >= 0 || status == ZOSIG_E_VERIFY_FAILED;
    return checked ? ReportVerified(out, session, result) : session.Fail(status, "verify");
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
    AddKeyOptions(sign, signCommand->paths, "A private key file instead of a keystore");
    sign.add_flag("--seal-none", signCommand->sealNone, "Let every folder get new items later");
    sign.add_option("--open", signCommand->open,
                    "A folder of the tree that may get new items later, with all below it; repeatable")
        ->allow_extra_args(false)  // the next word is the folder to sign
        ->excludes(sign.get_option("--seal-none"));
    sign.add_flag("--strict", signCommand->strict, "Exit with 34 when anything could not be read");
    tool.AllowJsonLines(sign);

    const auto verifyCommand = std::make_shared<VerifyCommand>();
    CLI::App& verify =
        tool.AddCommand(root,
                        {"verify", "Check a folder against its manifest",
                         "verify C:\\Suite --manifest C:\\Suite\\suite.zosig --keystore D:\\Keys\\suite"},
                        [verifyCommand](Output& out) { return Verify(out, *verifyCommand); });
    AddPathOptions(verify, verifyCommand->paths);
    AddKeyOptions(verify, verifyCommand->paths, "A public or private key file instead of a keystore")
        .add_flag("--embedded-key", verifyCommand->embedded, "The key that the library was built with");
    tool.AllowJsonLines(verify);
}

}  // namespace zoctl
