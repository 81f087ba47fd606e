// A pair of keys, a sealed tree, and its verification.

#include "fault_scenarios.h"
#include "temp_folder.h"
#include "zosigner.h"

namespace zoproof {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPrivateBlob = 1179, kPublicBlob = 283;  // bytes of an RSA-2048 key's blobs

struct Sealed {
    fs::path root, manifest, keys;

    [[nodiscard]] std::int32_t Sign() const {
        ZoSignerSignOptions options{};
        const std::wstring rootText = root.wstring(), manifestText = manifest.wstring(), keysText = keys.wstring();
        options.root = rootText.c_str();
        options.manifest = manifestText.c_str();
        options.keystore = keysText.c_str();
        return ZoSigner_SignDirectory(&options, nullptr);
    }
    [[nodiscard]] std::int32_t Verify() const {
        ZoSignerVerifyOptions options{};
        const std::wstring rootText = root.wstring(), manifestText = manifest.wstring(), keysText = keys.wstring();
        options.root = rootText.c_str();
        options.manifest = manifestText.c_str();
        options.keystore = keysText.c_str();
        return ZoSigner_VerifyDirectory(&options, nullptr);
    }
    [[nodiscard]] std::int32_t MakeKeys() const { return ZoSigner_GenerateKeyPair(keys.wstring().c_str()); }

    void Change() const { zotest::WriteFileBytes(root / "sub" / "added.exe", "not sealed"); }
    void MakeTree() const {
        zotest::RemoveTree((root / "sub" / "added.exe").wstring());
        for (const char* file : {"a.exe", "b.dll", "sub/c.txt"})
            zotest::WriteFileBytes(root / file, std::string("bytes of ") + file);
    }
};

std::string Fine() {
    return {};
}

}  // namespace

std::vector<Scenario> SignerScenarios(const fs::path& folder) {
    const Sealed sealed{folder / "tree", folder / "seal.zosig", folder / "keys"};
    sealed.MakeTree();
    const auto freshKeys = [=] { zotest::RemoveTree(sealed.keys.wstring()); };
    const auto keys = [=] {
        if (zotest::ReadFileBytes(sealed.keys / "public.rsakey").size() != kPublicBlob && sealed.MakeKeys() < 0)
            throw std::runtime_error("no keys can be made");
    };
    const auto signedTree = [=] {
        keys();
        sealed.MakeTree();
        if (sealed.Sign() < 0) throw std::runtime_error("the tree cannot be signed");
    };
    const auto changedTree = [=] {
        signedTree();
        sealed.Change();
    };
    const auto wholeKeys = [=]() -> std::string {
        const std::size_t size = zotest::ReadFileBytes(sealed.keys / "private.rsakey").size();
        return size == 0 || size == kPrivateBlob ? "" : "a part of a private key was written";
    };
    const auto neverClean = [=] {
        const std::int32_t status = sealed.Verify();
        if (status == 0) throw std::runtime_error("a changed tree was found clean");
        return status;
    };
    return {
        {"make keys", freshKeys, [=] { return sealed.MakeKeys(); }, wholeKeys},
        {"thumbprint", keys,
         [=] {
             std::uint8_t digest[32];
             return ZoSigner_GetPublicKeyThumbprint(sealed.keys.wstring().c_str(), digest);
         },
         Fine},
        {"sign", keys, [=] { return sealed.Sign(); }, wholeKeys},
        {"sign with new keys", freshKeys, [=] { return sealed.Sign(); }, wholeKeys},
        {"verify", signedTree, [=] { return sealed.Verify(); }, Fine},
        // The one answer that must never come is 0.
        {"verify a changed tree", changedTree, neverClean, Fine, "80049102"},
    };
}

}  // namespace zoproof
