#include <windows.h>

#include <filesystem>

#include "error_text.h"
#include "errors.h"
#include "format.h"
#include "hex.h"
#include "key_source.h"
#include "library_settings.h"
#include "seal_commands.h"
#include "seal_paths.h"
#include "signer_session.h"
#include "text.h"
#include "zosigner.h"

namespace zoctl {

namespace {

int TellThumbprint(Output& out, Json facts, const std::uint8_t (&thumbprint)[32], std::string_view sentence = {}) {
    if (!sentence.empty()) out.Text(zo::Format("{}\n", sentence));
    out.Text(zo::Format("{}\n", zo::ToHex(thumbprint)));
    facts["thumbprint"] = HexJson(thumbprint);
    return out.Done("", facts);
}

int ShowThumbprint(Output& out, const std::string& keystore, std::string_view sentence) {
    std::uint8_t thumbprint[32]{};
    const std::int32_t status = ZoSigner_GetPublicKeyThumbprint(zo::WideFromUtf8(keystore).c_str(), thumbprint);
    if (status < 0) return out.Fail(status, Subject::kSigner, "load the key of " + Quote(keystore));
    return TellThumbprint(out, {{"keystore", keystore}}, thumbprint, sentence);
}

struct ThumbprintCommand {
    std::string key;  // a keystore or a key file
    bool embedded = false;
};

int ShowEmbeddedThumbprint(Output& out) {
    KeyBytes key;
    std::uint8_t thumbprint[32]{};
    if (!zo::DecodeHex(EmbeddedPublicKey(), key) || !ThumbprintOf(key, thumbprint)) {
        return out.Refuse(kExitKey, "The library's file does not say which key it was built with.",
                          "Check that ZoProtectorLib.dll is unchanged and was built together with this zoctl.");
    }
    return TellThumbprint(out, {{"embeddedKey", true}}, thumbprint);
}

int Thumbprint(Output& out, const ThumbprintCommand& command) {
    if (command.embedded) return ShowEmbeddedThumbprint(out);
    if (StateOf(command.key).IsFolder()) return ShowThumbprint(out, command.key, "");
    KeySource source = KeyOption(command.key);
    if (command.key != kStandardInput) source.name = "The key " + Quote(command.key);
    source.advice = "Name a keystore folder, or a key file that \"zoctl keys generate\" made.";
    KeyBytes key;
    std::uint8_t thumbprint[32]{};
    if (const Ended ended = ReadKey(out, source, key)) return *ended;
    if (ThumbprintOf(key, thumbprint)) return TellThumbprint(out, {{"key", command.key}}, thumbprint);
    return out.Refuse(kExitKey, source.name + " does not hold a key.", source.advice);
}

// Ends the command when the keystore has one of the two files, or when that cannot be determined.
Ended CheckNoKeys(Output& out, const std::string& keystore) {
    for (const std::string& file : {PrivateKeyFile(keystore), PublicKeyFile(keystore)}) {
        const PathState state = StateOf(file);
        if (state.Absent()) continue;
        return out.Refuse(
            kExitExists,
            state.error == ERROR_SUCCESS ? zo::Format("{} already exists.", Quote(file))
                                         : zo::Format("It cannot be determined whether {} already exists: {}",
                                                      Quote(file), zo::ErrorText(state.error)),
            "Name another folder, or use --replace: nothing can then be signed with the old key any more.");
    }
    return std::nullopt;
}

int Generate(Output& out, const std::string& keystore, bool replace) {
    if (keystore.empty()) return out.Refuse(kExitUsage, "The name of the keystore is empty.", "Name a folder.");
    if (!replace) {
        if (const Ended ended = CheckNoKeys(out, keystore)) return *ended;
    }
    std::int32_t status = 0;
    try {
        status = ZoSigner_GenerateKeyPair(zo::WideFromUtf8(keystore).c_str());
    } catch (const std::filesystem::filesystem_error& error) {
        return RefuseFolder(out, error);
    }
    if (status == zo::HresultFromWin32(ERROR_WRITE_FAULT)) {
        return out.Refuse(kExitFailed, zo::Format("The key files in {} cannot be written.", Quote(keystore)),
                          "Check that you may write to the folder, and that no other program uses its key files.");
    }
    if (status < 0) return out.Fail(status, Subject::kSigner, "create a key pair in " + Quote(keystore));
    const int exitCode = ShowThumbprint(out, keystore, "Created a key pair. Its thumbprint:");
    out.Hint("Keep private.rsakey secret; give public.rsakey to those who verify.");
    return exitCode;
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
    const auto shown = std::make_shared<ThumbprintCommand>();
    CLI::App& thumbprint = tool.AddCommand(
        group,
        {"thumbprint", "Show the thumbprint by which a manifest names its key", "keys thumbprint D:\\Keys\\suite"},
        [shown](Output& out) { return Thumbprint(out, *shown); });
    CLI::Option_group& source = *thumbprint.add_option_group("key");
    source.add_option("keystore", shown->key, "The keystore folder, or a key file; - is standard input");
    source.add_flag("--embedded-key", shown->embedded, "The key that the library was built with");
    source.require_option(1);
}

}  // namespace zoctl
