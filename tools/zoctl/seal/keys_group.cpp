#include <windows.h>

#include "console.h"
#include "format.h"
#include "hex.h"
#include "seal_commands.h"
#include "signer_session.h"
#include "text.h"
#include "zosigner.h"

namespace zoctl {

namespace {

int ShowThumbprint(Output& out, const std::string& keystore, std::string_view sentence) {
    std::uint8_t thumbprint[32]{};
    const std::int32_t status = ZoSigner_GetPublicKeyThumbprint(zo::WideFromUtf8(keystore).c_str(), thumbprint);
    if (status < 0) return out.Fail(status, Subject::kSigner, "load the key of " + Quote(keystore));
    if (!sentence.empty()) out.Text(zo::Format("{}\n", sentence));
    out.Text(zo::Format("{}\n", zo::ToHex(thumbprint)));
    return out.Done("", {{"keystore", keystore}, {"thumbprint", HexJson(thumbprint)}});
}

int Generate(Output& out, const std::string& keystore, bool replace) {
    const std::wstring privateFile = zo::WideFromUtf8(keystore + "\\private.rsakey");
    if (!replace && GetFileAttributesW(privateFile.c_str()) != INVALID_FILE_ATTRIBUTES) {
        return out.Refuse(
            kExitExists, zo::Format("{} already has a private key.", Quote(keystore)),
            "Use --replace to throw it away: what it has sealed can then no more be sealed again with it.");
    }
    const std::int32_t status = ZoSigner_GenerateKeyPair(zo::WideFromUtf8(keystore).c_str());
    if (status < 0) return out.Fail(status, Subject::kSigner, "create a key pair in " + Quote(keystore));
    out.Hint("Keep private.rsakey secret; give public.rsakey to those who verify.");
    return ShowThumbprint(out, keystore, "Created a key pair. Its thumbprint:");
}

}  // namespace

void RegisterKeys(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "keys", "Create signing keys and show their thumbprints");
    const auto keystore = std::make_shared<std::string>();
    const auto replace = std::make_shared<bool>(false);
    CLI::App& generate = tool.AddCommand(
        group, {"generate", "Create a new RSA-2048 key pair in a keystore folder", "keys generate D:\\Keys\\suite"},
        [keystore, replace](Output& out) { return Generate(out, *keystore, *replace); });
    generate.add_option("keystore", *keystore, "The keystore folder; created if missing")->required();
    generate.add_flag("--replace", *replace, "Replace an existing pair");
    tool.AddCommand(
            group,
            {"thumbprint", "Show the thumbprint by which a manifest names its key", "keys thumbprint D:\\Keys\\suite"},
            [keystore](Output& out) { return ShowThumbprint(out, *keystore, ""); })
        .add_option("keystore", *keystore, "The keystore folder")
        ->required();
}

}  // namespace zoctl
