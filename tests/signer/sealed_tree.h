#pragma once

// A small tree with its keystore and manifest in a temporary folder, the exports called on them, and manifests forged
// with the same key, which is the development key of the build.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "temp_folder.h"
#include "zosigner.h"

namespace zotest {

using Bytes = std::vector<std::uint8_t>;

// The private half of the key that the build embeds by default.
[[nodiscard]] const Bytes& DevelopmentKey();
// The public blob that belongs to a full private one.
[[nodiscard]] Bytes PublicHalf(const Bytes& privateBlob);
[[nodiscard]] std::string Sha256Hex(const std::string& bytes);
// PKCS #1 over the SHA-256 of the bytes, with the development key.
[[nodiscard]] std::string SignatureHex(const std::string& bytes);

struct SignOutcome {
    std::int32_t status = 0;
    ZoSignerSignResult result{};
    std::vector<std::string> messages;  // "2 text": level and text
};

struct VerifyOutcome {
    std::int32_t status = 0;
    ZoSignerVerifyResult result{};
    std::vector<std::string> messages;
};

// A log callback that appends to a std::vector<std::string>.
void CollectMessage(void* messages, std::uint32_t level, const wchar_t* message);

class SealedTree {
  public:
    // Writes the keystore; the tree is an empty folder.
    SealedTree();

    [[nodiscard]] std::filesystem::path Root() const { return folder_ / "tree"; }
    [[nodiscard]] std::filesystem::path Keystore() const { return folder_ / "keys"; }
    [[nodiscard]] std::filesystem::path Manifest() const { return folder_ / "seal.zosig"; }
    [[nodiscard]] std::filesystem::path Beside(const char* name) const { return folder_ / name; }
    // As messages show it.
    [[nodiscard]] std::string Shown(const std::string& relative) const;

    void Write(const std::string& relative, const std::string& bytes) const;
    void MakeFolder(const std::string& relative) const;
    void Remove(const std::string& relative) const;

    using SignChange = std::function<void(ZoSignerSignOptions&)>;
    using VerifyChange = std::function<void(ZoSignerVerifyOptions&)>;
    SignOutcome Sign(const SignChange& change = {}) const;
    [[nodiscard]] VerifyOutcome Verify(const VerifyChange& change = {}) const;

    // A manifest with this text below its signature line, signed with the development key.
    void Forge(const std::string& body) const;
    [[nodiscard]] std::string ManifestBytes() const { return ReadFileBytes(Manifest()); }

  private:
    TempFolder folder_;
    std::wstring root_ = Root().wstring();
    std::wstring manifest_ = Manifest().wstring();
    std::wstring keystore_ = Keystore().wstring();
};

}  // namespace zotest
