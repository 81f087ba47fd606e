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
using Lines = std::vector<std::string>;

inline constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057);

// The private half of the key that the build embeds by default, and its public blob.
[[nodiscard]] const Bytes& DevelopmentKey();
[[nodiscard]] const Bytes& DevelopmentPublicKey();
// The public blob that belongs to a full private one.
[[nodiscard]] Bytes PublicHalf(const Bytes& privateBlob);
[[nodiscard]] std::string Text(const Bytes& bytes);
[[nodiscard]] std::string Sha256Hex(const std::string& bytes);
// PKCS #1 over the SHA-256 of the bytes, with the development key.
[[nodiscard]] std::string SignatureHex(const std::string& bytes);
// The four lines that list a file of these contents.
[[nodiscard]] std::string FileLines(const std::string& path, const std::string& bytes);

template <typename Result>
struct Outcome {
    std::int32_t status = 0;
    Result result{};
    Lines messages;  // "2 text": level and text
};

// A log callback that appends to Lines.
void CollectMessage(void* messages, std::uint32_t level, const wchar_t* message);

class SealedTree {
  public:
    // Writes the keystore; the tree is an empty folder.
    SealedTree();

    [[nodiscard]] std::filesystem::path Root() const { return folder_ / "tree"; }
    [[nodiscard]] std::filesystem::path Keystore() const { return folder_ / "keys"; }
    [[nodiscard]] std::filesystem::path Manifest() const { return folder_ / "seal.zosig"; }
    [[nodiscard]] std::filesystem::path Beside(const char* name) const { return folder_ / name; }
    [[nodiscard]] std::filesystem::path At(const std::string& relative) const;
    // As messages show it.
    [[nodiscard]] std::string Shown(const std::string& relative) const;

    // Steps separated by ";": "+path=bytes" writes a file, "/path" makes a folder, "-path" removes either, ">from=to"
    // renames, "!path" makes read-only, "&path" makes a hard link to the manifest.
    void Change(const std::string& steps) const;

    Outcome<ZoSignerSignResult> Sign(const std::function<void(ZoSignerSignOptions&)>& change = {}) const;
    [[nodiscard]] Outcome<ZoSignerVerifyResult> Verify(
        const std::function<void(ZoSignerVerifyOptions&)>& change = {}) const;

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
