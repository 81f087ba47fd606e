// "zoctl sign" and "zoctl verify".

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "console.h"
#include "format.h"
#include "groups.h"
#include "progress.h"
#include "signer_session.h"
#include "text.h"
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

// Whether the folder is the other or lies below it, links resolved.
bool IsInside(const std::wstring& folder, const std::wstring& tree) {
    std::error_code error;
    std::filesystem::path above = std::filesystem::absolute(folder, error);
    for (; !error && !above.empty(); above = above.parent_path()) {
        if (std::filesystem::equivalent(above, tree, error)) return true;
        error.clear();  // what does not exist yet is equivalent to nothing
        if (above == above.parent_path()) break;
    }
    return false;
}

std::int32_t AskWhetherSealed(void* context, const wchar_t* path, std::int32_t* seal, std::int32_t*) {
    const auto& open = *static_cast<const std::set<std::wstring>*>(context);
    std::wstring above = path;
    for (;;) {
        if (open.contains(above)) *seal = 0;
        const std::size_t slash = above.rfind(L'/');
        if (*seal == 0 || slash == std::wstring::npos) return 0;
        above.resize(slash);
    }
}

std::set<std::wstring> OpenFolders(const SignCommand& command) {
    std::set<std::wstring> open;
    for (std::string folder : command.open) {
        std::replace(folder.begin(), folder.end(), '\\', '/');
        while (folder.size() > 1 && folder.ends_with('/'))
            folder.pop_back();
        open.insert(zo::WideFromUtf8(folder));
    }
    return open;
}

Json Merge(Json facts, const Json& more) {
    facts.update(more);
    return facts;
}

int ReportSigned(Output& out, const SignCommand& command, const SignerSession& session,
                 const ZoSignerSignResult& result) {
    const std::size_t unreadable = session.Count("unreadable");
    session.ShowFindings();
    TextTable table({"entries", "directories", "sealed", "not read"});
    table.Add({std::to_string(result.entries), std::to_string(result.directories),
               std::to_string(result.sealedDirectories), std::to_string(unreadable)});
    out.Table(table);
    const Json facts = Merge({{"manifest", command.paths.manifest},
                              {"entries", result.entries},
                              {"directories", result.directories},
                              {"sealedDirectories", result.sealedDirectories},
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
    const std::wstring root = zo::WideFromUtf8(command.paths.root);
    const std::wstring manifest = zo::WideFromUtf8(command.paths.manifest);
    const std::wstring keystore = zo::WideFromUtf8(command.paths.keystore);
    std::set<std::wstring> open = OpenFolders(command);
    if (!keystore.empty() && IsInside(keystore, root)) {
        out.Hint("Warning: the keystore lies inside the folder, so the private key is shipped with what it seals.");
    }
    SignerSession session(out);
    ZoSignerSignOptions options{};
    std::vector<std::uint8_t> blob;
    if (int exitCode = 0; !command.paths.keyFile.empty()) {
        if (!ReadKeyFile(out, command.paths.keyFile, blob, exitCode)) return exitCode;
        options.keyBlob = blob.data();
        options.keyBlobSize = static_cast<std::uint32_t>(blob.size());
    }
    options.root = root.c_str();
    options.manifest = manifest.c_str();
    options.keystore = keystore.c_str();
    options.sealMode = command.sealNone ? ZOSIG_SEAL_NONE : open.empty() ? ZOSIG_SEAL_ALL : ZOSIG_SEAL_ASK;
    options.sealCallback = AskWhetherSealed;
    options.sealContext = &open;
    options.logCallback = SignerSession::Log;
    options.logContext = &session;
    ZoSignerSignResult result{};
    std::int32_t status = 0;
    {
        const Progress progress(out, "signing");
        status = ZoSigner_SignDirectory(&options, &result);
    }
    if (status >= 0) return ReportSigned(out, command, session, result);
    if (!session.Problem().empty()) out.Hint(EscapeControls(session.Problem()));
    return out.Fail(status, Subject::kSigner, "sign " + Quote(command.paths.root), session.Facts());
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
    const std::wstring root = zo::WideFromUtf8(command.paths.root);
    const std::wstring manifest = zo::WideFromUtf8(command.paths.manifest);
    const std::wstring keystore = zo::WideFromUtf8(command.paths.keystore);
    SignerSession session(out);
    ZoSignerVerifyOptions options{};
    std::vector<std::uint8_t> blob;
    if (int exitCode = 0; !command.paths.keyFile.empty()) {
        if (!ReadKeyFile(out, command.paths.keyFile, blob, exitCode)) return exitCode;
        options.keyBlob = blob.data();
        options.keyBlobSize = static_cast<std::uint32_t>(blob.size());
    }
    options.root = root.c_str();
    options.manifest = manifest.c_str();
    options.keystore = keystore.c_str();
    options.logCallback = SignerSession::Log;
    options.logContext = &session;
    ZoSignerVerifyResult result{};
    std::int32_t status = 0;
    {
        const Progress progress(out, "verifying");
        status = command.embedded ? ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result)
                                  : ZoSigner_VerifyDirectory(&options, &result);
    }
    if (status >= 0 || status == ZOSIG_E_VERIFY_FAILED) return ReportVerified(out, session, result);
    if (!session.Problem().empty()) out.Hint(EscapeControls(session.Problem()));
    return out.Fail(status, Subject::kSigner, "verify " + Quote(command.paths.root), session.Facts());
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
    sign.add_option("--open", signCommand->open, "A folder that may get new items later, with all below it; repeatable")
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
