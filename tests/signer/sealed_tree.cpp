#include "sealed_tree.h"

#include <algorithm>
#include <stdexcept>

#include "cng.h"
#include "hex.h"
#include "loaded_library.h"
#include "owned_handles.h"
#include "text.h"

namespace zotest {

namespace {

void Require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(what);
}

// The key object with the provider it needs.
struct Key {
    explicit Key(const Bytes& privateBlob) {
        Require(BCryptOpenAlgorithmProvider(provider.Out(), BCRYPT_RSA_ALGORITHM, nullptr, 0) >= 0, "RSA provider");
        Require(
            BCryptImportKeyPair(provider.Get(), nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, handle.Out(),
                                const_cast<PUCHAR>(privateBlob.data()), static_cast<ULONG>(privateBlob.size()), 0) >= 0,
            "import key");
    }
    zo::OwnedAlgorithm provider;
    zo::OwnedCryptoKey handle;
};

zo::Sha256Digest Sha256(const std::string& bytes) {
    zo::Sha256Digest digest{};
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    Require(zo::HashOnce(BCRYPT_SHA256_ALGORITHM, {data, bytes.size()}, digest) >= 0, "SHA-256");
    return digest;
}

}  // namespace

const Bytes& DevelopmentKey() {
    static const Bytes key = [] {
        std::string text = ReadFileBytes(ProgramFolder() / "development_private_key.hex");
        std::erase_if(text, [](char character) { return character == '\n' || character == '\r'; });
        Bytes bytes;
        Require(zo::DecodeHex(text, bytes) && bytes.size() == 1179, "development_private_key.hex");
        return bytes;
    }();
    return key;
}

Bytes PublicHalf(const Bytes& privateBlob) {
    Bytes blob;
    Require(zo::ExportKey(Key(privateBlob).handle.Get(), BCRYPT_RSAPUBLIC_BLOB, blob) >= 0, "export key");
    return blob;
}

const Bytes& DevelopmentPublicKey() {
    static const Bytes key = PublicHalf(DevelopmentKey());
    return key;
}

std::string Text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string Sha256Hex(const std::string& bytes) {
    return zo::ToHex(Sha256(bytes));
}

std::string SignatureHex(const std::string& bytes) {
    static const Key key(DevelopmentKey());
    Bytes signature;
    Require(zo::SignDigest(key.handle.Get(), Sha256(bytes), signature) >= 0, "sign");
    return zo::ToHex(signature);
}

std::string FileLines(const std::string& path, const std::string& bytes) {
    return "F " + path + "\n  SIZE " + std::to_string(bytes.size()) + "\n  HASH " + Sha256Hex(bytes) + "\n  SIG  " +
           SignatureHex(bytes) + "\n";
}

void CollectMessage(void* messages, std::uint32_t level, const wchar_t* message) {
    static_cast<Lines*>(messages)->push_back(std::to_string(level) + " " + zo::Utf8FromWide(message));
}

SealedTree::SealedTree() {
    WriteFileBytes(Keystore() / "private.rsakey", Text(DevelopmentKey()));
    WriteFileBytes(Keystore() / "public.rsakey", Text(DevelopmentPublicKey()));
    std::filesystem::create_directories(Root());
}

std::filesystem::path SealedTree::At(const std::string& relative) const {
    return (Root() / zo::WideFromUtf8(relative)).make_preferred();
}

std::string SealedTree::Shown(const std::string& relative) const {
    std::string shown = zo::Utf8FromWide(root_) + '\\' + relative;
    std::ranges::replace(shown, '/', '\\');
    return shown;
}

void SealedTree::Change(const std::string& steps) const {
    for (std::size_t at = 0, end = 0; at < steps.size(); at = end + 1) {
        end = std::min(steps.find(';', at), steps.size());
        const std::size_t equals = std::min(steps.find('=', at), end);
        const std::filesystem::path path = At(steps.substr(at + 1, equals - at - 1));
        const std::string value = equals == end ? "" : steps.substr(equals + 1, end - equals - 1);
        bool done = true;
        switch (steps[at]) {
            case '+':
                WriteFileBytes(path, value);
                break;
            case '/':
                std::filesystem::create_directories(path);
                break;
            case '-':
                RemoveTree(path.wstring());
                break;
            case '>':
                done = MoveFileW(path.c_str(), At(value).c_str()) != FALSE;
                break;
            case '!':
                done = SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY) != FALSE;
                break;
            case '&':
                done = CreateHardLinkW(path.c_str(), manifest_.c_str(), nullptr) != FALSE;
                break;
            default:
                done = false;
        }
        Require(done, steps.c_str());
    }
}

Outcome<ZoSignerSignResult> SealedTree::Sign(const std::function<void(ZoSignerSignOptions&)>& change) const {
    Outcome<ZoSignerSignResult> outcome;
    ZoSignerSignOptions options{};
    options.root = root_.c_str();
    options.manifest = manifest_.c_str();
    options.keystore = keystore_.c_str();
    options.logCallback = CollectMessage;
    options.logContext = &outcome.messages;
    if (change) change(options);
    outcome.status = ZoSigner_SignDirectory(&options, &outcome.result);
    return outcome;
}

Outcome<ZoSignerVerifyResult> SealedTree::Verify(const std::function<void(ZoSignerVerifyOptions&)>& change) const {
    Outcome<ZoSignerVerifyResult> outcome;
    ZoSignerVerifyOptions options{root_.c_str(),  manifest_.c_str(), keystore_.c_str(), nullptr, 0,
                                  CollectMessage, &outcome.messages};
    if (change) change(options);
    outcome.status = ZoSigner_VerifyDirectory(&options, &outcome.result);
    return outcome;
}

void SealedTree::Forge(const std::string& body) const {
    const std::string magic = "ZOSIG1\n";
    WriteFileBytes(Manifest(), magic + "MSIG " + SignatureHex(magic + body) + "\n" + body);
}

}  // namespace zotest
