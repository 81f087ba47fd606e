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

std::string Sha256Hex(const std::string& bytes) {
    return zo::ToHex(Sha256(bytes));
}

std::string SignatureHex(const std::string& bytes) {
    static const Key key(DevelopmentKey());
    Bytes signature;
    Require(zo::SignDigest(key.handle.Get(), Sha256(bytes), signature) >= 0, "sign");
    return zo::ToHex(signature);
}

void CollectMessage(void* messages, std::uint32_t level, const wchar_t* message) {
    static_cast<std::vector<std::string>*>(messages)->push_back(std::to_string(level) + " " +
                                                                zo::Utf8FromWide(message));
}

SealedTree::SealedTree() {
    const auto text = [](const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); };
    WriteFileBytes(Keystore() / "private.rsakey", text(DevelopmentKey()));
    WriteFileBytes(Keystore() / "public.rsakey", text(PublicHalf(DevelopmentKey())));
    std::filesystem::create_directories(Root());
}

std::string SealedTree::Shown(const std::string& relative) const {
    std::string shown = zo::Utf8FromWide(root_) + '\\' + relative;
    std::ranges::replace(shown, '/', '\\');
    return shown;
}

void SealedTree::Write(const std::string& relative, const std::string& bytes) const {
    WriteFileBytes(Root() / zo::WideFromUtf8(relative), bytes);
}

void SealedTree::MakeFolder(const std::string& relative) const {
    std::filesystem::create_directories(Root() / zo::WideFromUtf8(relative));
}

void SealedTree::Remove(const std::string& relative) const {
    RemoveTree((Root() / zo::WideFromUtf8(relative)).make_preferred().wstring());
}

SignOutcome SealedTree::Sign(const SignChange& change) const {
    SignOutcome outcome;
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

VerifyOutcome SealedTree::Verify(const VerifyChange& change) const {
    VerifyOutcome outcome;
    ZoSignerVerifyOptions options{};
    options.root = root_.c_str();
    options.manifest = manifest_.c_str();
    options.keystore = keystore_.c_str();
    options.logCallback = CollectMessage;
    options.logContext = &outcome.messages;
    if (change) change(options);
    outcome.status = ZoSigner_VerifyDirectory(&options, &outcome.result);
    return outcome;
}

void SealedTree::Forge(const std::string& body) const {
    const std::string magic = "ZOSIG1\n";
    WriteFileBytes(Manifest(), magic + "MSIG " + SignatureHex(magic + body) + "\n" + body);
}

}  // namespace zotest
