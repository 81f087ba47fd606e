#pragma once

// The key pair of a keystore folder: where its two files are, how they are made, loaded and replaced, and the
// thumbprint that identifies a key. What is signed with the key is decided elsewhere.

#include <cstdint>
#include <span>
#include <string>

#include "cng.h"
#include "key_blob.h"
#include "manifest_text.h"
#include "owned_handles.h"
#include "report.h"

namespace zosigner {

// The folder as the caller named it, and its two files.
class Keystore {
  public:
    explicit Keystore(const wchar_t* folder);

    [[nodiscard]] const wchar_t* Given() const { return given_; }
    [[nodiscard]] const std::wstring& PrivateFile() const { return privateFile_; }  // both in long form
    [[nodiscard]] const std::wstring& PublicFile() const { return publicFile_; }

    // With its ancestors, where they are missing. Raises std::filesystem::filesystem_error("create_directories", ...).
    void CreateFolder() const;

  private:
    const wchar_t* given_;
    std::wstring privateFile_;
    std::wstring publicFile_;
};

// One operation's key. The RSA provider is opened by the first routine that needs it. A failed import leaves no key.
class SigningKey {
  public:
    [[nodiscard]] BCRYPT_KEY_HANDLE Get() const { return key_.Get(); }

    // The private key of the keystore. False, without a message, when there is none.
    [[nodiscard]] bool LoadForSigning(const Keystore& keystore, const Report& report);
    // The public key, or the private one if there is no public file. A public file that does not import is an error.
    [[nodiscard]] bool LoadForVerification(const Keystore& keystore, const Report& report);
    // Loads the private key, or makes and saves a new pair if none imports.
    [[nodiscard]] std::int32_t Ensure(const Keystore& keystore, const Report& report);
    // A key from the caller. A full private key is accepted where a public one is asked for.
    [[nodiscard]] std::int32_t ImportBlob(std::span<const std::uint8_t> blob, KeyBlobKind kind, const Report& report);

    // Makes a new pair; gives an NTSTATUS.
    [[nodiscard]] std::int32_t Generate();
    [[nodiscard]] bool Save(const Keystore& keystore, const Report& report) const;

    // SHA-256 of the public blob; all zero when it cannot be taken, which matches no real thumbprint.
    [[nodiscard]] Thumbprint PublicThumbprint(zo::Hasher& sha256) const;

  private:
    [[nodiscard]] std::int32_t OpenProvider();
    [[nodiscard]] std::int32_t Import(KeyBlobKind kind, std::span<const std::uint8_t> blob);

    zo::OwnedAlgorithm provider_;
    zo::OwnedCryptoKey key_;  // destroyed before its provider
};

}  // namespace zosigner
