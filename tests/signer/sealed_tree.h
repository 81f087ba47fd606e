#pragma once

// A small tree with its keystore and manifest in a temporary folder, the exports called on them, and manifests forged
// with the same key, which is the development key of the build.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <vector>

#include "cng.h"
#include "format.h"
#include "hex.h"
#include "import_hook.h"
#include "loaded_library.h"
#include "rows.h"
#include "temp_folder.h"
#include "text.h"
#include "zosigner.h"

namespace zotest {

using Lines = std::vector<std::string>;

inline constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057);
inline const std::string kTampered = "2 manifest body has been tampered with (MSIG verify -> 0xC000A000)";

// A step below that fails returns a value that no test expects.

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

// How the messages of verification about one item begin: level and text. The word in brackets says which counter grows.
inline const std::string kChanged = "2 [BAD ] hash mismatch: ";
inline const std::string kMissing = "1 [MISS] ";
inline const std::string kMissingShortcut = "1 [MISS] shortcut anchor: ";
inline const std::string kExtraFile = "2 [XTRA] unexpected file in sealed dir: ";
inline const std::string kExtraFolder = "2 [XTRA] unexpected dir  in sealed dir: ";
inline const std::string kExtraLink = "2 [XTRA] new mklink (reparse point) created in sealed dir: ";

struct Finding {
    std::string beginning;
    std::string path;  // relative to the root
};

template <typename Result>
struct Outcome {
    std::int32_t status = 0;
    Result result{};
    Lines messages;  // "2 text": level and text

    void Expect(std::int32_t expectedStatus, const Lines& expectedMessages) const {
        EXPECT_EQ(status, expectedStatus);
        EXPECT_EQ(messages, expectedMessages);
    }
    void ExpectAtEnd(std::int32_t expectedStatus, const std::string& beginningOfTheMessage) const {
        EXPECT_EQ(status, expectedStatus);
        EXPECT_TRUE(messages.back().starts_with(beginningOfTheMessage)) << messages.back();
        EXPECT_EQ(result.directories, 0u) << "zeroed at entry";
    }
};

// What the seal callback does with one folder.
using SealFunction =
    std::function<std::int32_t(const std::wstring& path, std::int32_t& seal, std::int32_t& applyToRest)>;

struct SealedTree {
    TempFolder folder;
    // What the exports are given.
    std::filesystem::path root = folder / "tree";
    std::filesystem::path manifest = folder / "seal.zosig";
    std::filesystem::path keystore = folder / "keys";

    // Begins with these files, each holding its own path, and is not sealed yet.
    explicit SealedTree(std::initializer_list<const char*> files = {}) {
        WriteFileBytes(keystore / "private.rsakey", PrivateKey());
        WriteFileBytes(keystore / "public.rsakey", PublicHalf(PrivateKey()));
        std::filesystem::create_directories(root);
        for (const char* file : files)
            Write(file, file);
    }

    // Changes to the tree; paths are relative to its root.
    void Write(const std::string& path, const std::string& bytes) const { WriteFileBytes(At(path), bytes); }
    void MakeFolder(const std::string& path) const { std::filesystem::create_directories(At(path)); }
    void Remove(const std::string& path) const { RemoveTree(At(path).wstring()); }
    void ReplaceByFolder(const std::string& path) const { Remove(path), MakeFolder(path); }
    void Rename(const std::string& from, const std::string& to) const { std::filesystem::rename(At(from), At(to)); }
    // Wine does not change letter case alone, so the name changes twice.
    void RenameTwice(const std::string& from, const std::string& to) const {
        Rename(from, "on the way");
        Rename("on the way", to);
    }
    void LinkToManifest(const std::string& path) const { std::filesystem::create_hard_link(manifest, At(path)); }

    [[nodiscard]] std::filesystem::path At(const std::string& relative) const {
        return (folder / "tree" / zo::WideFromUtf8(relative)).make_preferred();
    }
    // As messages show it.
    [[nodiscard]] std::string Shown(const std::string& relative) const {
        return zo::Utf8FromWide(At(relative).wstring());
    }
    [[nodiscard]] std::string Shown(const Finding& finding) const { return finding.beginning + Shown(finding.path); }
    [[nodiscard]] std::string ManifestBytes() const { return ReadFileBytes(manifest); }

    Outcome<ZoSignerSignResult> Sign(const std::function<void(ZoSignerSignOptions&)>& change = {}) const {
        return Call(ZoSigner_SignDirectory, change);
    }
    Outcome<ZoSignerSignResult> SignAsking(SealFunction ask, std::uint32_t mode = ZOSIG_SEAL_ASK) const {
        return Sign([&](ZoSignerSignOptions& options) {
            options.sealMode = mode;
            options.sealContext = &ask;
            options.sealCallback = [](void* function, const wchar_t* path, std::int32_t* seal, std::int32_t* rest) {
                return (*static_cast<SealFunction*>(function))(path, *seal, *rest);
            };
        });
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
        outcome.result.directories = 99;
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

// A tree of each kind of item, sealed but for the folder "open".
struct StandardTree : SealedTree {
    StandardTree() : SealedTree({"a.txt", "d/b.txt", "d/e/c.txt", "link.lnk", "open/o.txt"}) {
        MakeFolder("empty");
        SignAllButOpen();
    }

    Outcome<ZoSignerSignResult> SignAllButOpen() const {
        return SignAsking([](const std::wstring& path, std::int32_t& seal, std::int32_t&) {
            seal = path != L"open";
            return 0;
        });
    }

    // Verifies; exactly these findings are reported, in this order, and counted. Other messages and the status can be
    // given for folders that are not seen.
    void ExpectFindings(const std::vector<Finding>& findings, const Lines& more = {}, std::int32_t status = 0) const {
        const auto outcome = Verify();
        ZoSignerVerifyResult expected{};
        expected.ok = 5;
        Lines messages;
        for (const Finding& finding : findings) {
            ++(finding.beginning[3] == 'B'   ? expected.bad
               : finding.beginning[3] == 'M' ? expected.missing
                                             : expected.extra);
            messages.push_back(Shown(finding));
        }
        expected.ok -= expected.bad + expected.missing;
        messages.insert(messages.end(), more.begin(), more.end());
        messages.push_back(zo::Format("0 Verify summary: ok={}, bad={}, missing={}, extra={}, dirs=5", expected.ok,
                                      expected.bad, expected.missing, expected.extra));
        EXPECT_EQ(outcome.messages, messages);
        EXPECT_EQ(outcome.status, status != 0 ? status : findings.empty() ? 0 : ZOSIG_E_VERIFY_FAILED);
    }
};

}  // namespace zotest
