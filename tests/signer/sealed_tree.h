#pragma once

// A small tree with its keystore and manifest in a temporary folder, the exports called on them, and manifests forged
// with the same key, which is the development key of the build.

#include <algorithm>
#include <functional>
#include <sstream>
#include <vector>

#include "cng.h"
#include "format.h"
#include "hex.h"
#include "loaded_library.h"
#include "temp_folder.h"
#include "text.h"
#include "zosigner.h"

namespace zotest {

using Lines = std::vector<std::string>;

inline constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057);

// In what follows a step that fails gives what no comparison holds for.

// The private half of the key that the build embeds by default, as a full blob.
inline std::string PrivateKey() {
    std::string text = ReadFileBytes(ProgramFolder() / "development_private_key.hex");
    std::erase_if(text, [](char character) { return character == '\n' || character == '\r'; });
    std::vector<std::uint8_t> bytes;
    static_cast<void>(zo::DecodeHex(text, bytes));
    return {bytes.begin(), bytes.end()};
}

// The public blob that belongs to a full private one: its exponent and modulus, without the primes.
inline std::string PublicHalf(const std::string& blob) {
    return "RSA1" + blob.substr(4, 12) + std::string(8, '\0') + blob.substr(24, 259);
}

inline zo::Sha256Digest Sha256(const std::string& bytes) {
    zo::Sha256Digest digest{};
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    static_cast<void>(zo::HashOnce(BCRYPT_SHA256_ALGORITHM, {data, bytes.size()}, digest));
    return digest;
}
inline std::string Sha256Hex(const std::string& bytes) {
    return zo::ToHex(Sha256(bytes));
}

// PKCS #1 over the SHA-256 of the bytes, with the development key.
inline std::string SignatureHex(const std::string& bytes) {
    std::string blob = PrivateKey();
    zo::OwnedAlgorithm provider;
    zo::OwnedCryptoKey key;
    std::vector<std::uint8_t> signature;
    BCryptOpenAlgorithmProvider(provider.Out(), BCRYPT_RSA_ALGORITHM, nullptr, 0);
    BCryptImportKeyPair(provider.Get(), nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, key.Out(),
                        reinterpret_cast<PUCHAR>(blob.data()), static_cast<ULONG>(blob.size()), 0);
    static_cast<void>(zo::SignDigest(key.Get(), Sha256(bytes), signature));
    return zo::ToHex(signature);
}

// The four lines that list a file of these contents.
inline std::string FileLines(const std::string& path, const std::string& bytes) {
    return zo::Format("F {}\n  SIZE {}\n  HASH {}\n  SIG  {}\n", path, bytes.size(), Sha256Hex(bytes),
                      SignatureHex(bytes));
}

// A file of zeros that takes no room.
inline void MakeLarge(const std::filesystem::path& path, std::int64_t size) {
    const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    SetFilePointerEx(file.Get(), {.QuadPart = size}, nullptr, FILE_BEGIN);
    SetEndOfFile(file.Get());
}

// Opens a file so that nobody else can.
inline zo::OwnedFile Hold(const std::filesystem::path& path) {
    return zo::OwnedFile(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

template <typename Result>
struct Outcome {
    std::int32_t status = 0;
    Result result{};
    Lines messages;  // "2 text": level and text
};

struct SealedTree {
    TempFolder folder;
    // What the exports are given.
    std::filesystem::path root = folder / "tree";
    std::filesystem::path manifest = folder / "seal.zosig";
    std::filesystem::path keystore = folder / "keys";

    // Begins as an empty folder to which the steps are taken.
    explicit SealedTree(const std::string& steps = {}) {
        WriteFileBytes(keystore / "private.rsakey", PrivateKey());
        WriteFileBytes(keystore / "public.rsakey", PublicHalf(PrivateKey()));
        std::filesystem::create_directories(root);
        Change(steps);
    }

    [[nodiscard]] std::filesystem::path At(const std::string& relative) const {
        return (folder / "tree" / zo::WideFromUtf8(relative)).make_preferred();
    }
    // As messages show it.
    [[nodiscard]] std::string Shown(const std::string& relative) const {
        return zo::Utf8FromWide(At(relative).wstring());
    }
    [[nodiscard]] std::string ManifestBytes() const { return ReadFileBytes(manifest); }

    // Steps separated by ";": "+path=bytes" writes a file, "/path" makes a folder, "-path" removes either, ">from=to"
    // renames, "&path" makes a hard link to the manifest.
    void Change(const std::string& steps) const {
        std::istringstream list(steps);
        for (std::string step; std::getline(list, step, ';');) {
            const std::size_t equals = step.find('=');
            const std::filesystem::path path = At(step.substr(1, equals - 1));
            const std::string value = equals == std::string::npos ? "" : step.substr(equals + 1);
            if (step[0] == '+') WriteFileBytes(path, value);
            if (step[0] == '/') std::filesystem::create_directories(path);
            if (step[0] == '-') RemoveTree(path.wstring());
            if (step[0] == '>') std::filesystem::rename(path, At(value));
            if (step[0] == '&') std::filesystem::create_hard_link(manifest, path);
        }
    }

    Outcome<ZoSignerSignResult> Sign(const std::function<void(ZoSignerSignOptions&)>& change = {}) const {
        return Call(ZoSigner_SignDirectory, change);
    }
    Outcome<ZoSignerVerifyResult> Verify(const std::function<void(ZoSignerVerifyOptions&)>& change = {},
                                         decltype(ZoSigner_VerifyDirectory) verify = ZoSigner_VerifyDirectory) const {
        return Call(verify, change);
    }

    // A manifest with this text below its signature line, signed with the development key.
    void Forge(const std::string& body) const {
        WriteFileBytes(manifest, "ZOSIG1\nMSIG " + SignatureHex("ZOSIG1\n" + body) + "\n" + body);
    }

  private:
    template <typename Options, typename Result>
    Outcome<Result> Call(std::int32_t (*operation)(const Options*, Result*),
                         const std::function<void(Options&)>& change) const {
        Outcome<Result> outcome;
        Options options{};
        options.root = root.c_str();
        options.manifest = manifest.c_str();
        options.keystore = keystore.c_str();
        options.logContext = &outcome.messages;
        options.logCallback = [](void* messages, std::uint32_t level, const wchar_t* message) {
            static_cast<Lines*>(messages)->push_back(std::to_string(level) + " " + zo::Utf8FromWide(message));
        };
        if (change) change(options);
        outcome.status = operation(&options, &outcome.result);
        return outcome;
    }
};

}  // namespace zotest
