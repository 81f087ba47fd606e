// Keystores: what is made, loaded, replaced and refused.

#include <gtest/gtest.h>
#include <windows.h>

#include <array>

#include "sealed_tree.h"
#include "text.h"

namespace zotest {
namespace {

using Print = std::array<std::uint8_t, 32>;

constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057);
const std::string kNotSupported = "NTSTATUS 0xC00000BB";
const std::string kJunk(300, 'j');

std::string Text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::int32_t ThumbprintOf(const std::filesystem::path& keystore, Print& print) {
    return ZoSigner_GetPublicKeyThumbprint(keystore.c_str(), print.data());
}

TEST(Keys, GenerateMakesTheKeystoreAndItsFoldersAndAlwaysReplaces) {
    const TempFolder folder;
    const std::filesystem::path keystore = folder / "new" / "keys";
    ASSERT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
    const std::string privateBlob = ReadFileBytes(keystore / "private.rsakey");
    const std::string publicBlob = ReadFileBytes(keystore / "public.rsakey");
    ASSERT_EQ(privateBlob.size(), 1179u);
    ASSERT_EQ(publicBlob.size(), 283u);
    EXPECT_EQ(privateBlob.substr(0, 4), "RSA3");
    EXPECT_EQ(publicBlob, Text(PublicHalf({privateBlob.begin(), privateBlob.end()})));
    EXPECT_EQ(publicBlob.substr(0, 24), std::string("RSA1\0\x08\0\0\x03\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0", 24));

    Print first{};
    EXPECT_EQ(ThumbprintOf(keystore, first), 0);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
    Print second{};
    EXPECT_EQ(ThumbprintOf(keystore, second), 0);
    EXPECT_NE(first, second);
}

TEST(Keys, GenerateTellsWhatItCannotDo) {
    const TempFolder folder;
    EXPECT_EQ(ZoSigner_GenerateKeyPair(nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(L""), kInvalidArgument);
    std::filesystem::create_directories(folder / "keys" / "private.rsakey");  // a folder where the file should be
    EXPECT_EQ(ZoSigner_GenerateKeyPair((folder / "keys").c_str()), static_cast<std::int32_t>(0x8007001D));
    std::filesystem::create_directories(folder / "other" / "public.rsakey");
    EXPECT_EQ(ZoSigner_GenerateKeyPair((folder / "other").c_str()), static_cast<std::int32_t>(0x8007001D));
    EXPECT_EQ(ReadFileBytes(folder / "other" / "private.rsakey").size(), 1179u);
    WriteFileBytes(folder / "file", "x");
    EXPECT_THROW(ZoSigner_GenerateKeyPair((folder / "file" / "keys").c_str()), std::filesystem::filesystem_error);
}

TEST(Keys, ThumbprintIsTheDigestOfThePublicBlobFromEitherHalf) {
    SealedTree tree;
    Print both{};
    ASSERT_EQ(ThumbprintOf(tree.Keystore(), both), 0);
    std::string hex;
    for (const std::uint8_t byte : both) {
        hex += "0123456789abcdef"[byte >> 4];
        hex += "0123456789abcdef"[byte & 15];
    }
    EXPECT_EQ(hex, Sha256Hex(Text(PublicHalf(DevelopmentKey()))));
    std::filesystem::remove(tree.Keystore() / "public.rsakey");
    Print fromPrivate{};
    EXPECT_EQ(ThumbprintOf(tree.Keystore(), fromPrivate), 0);
    EXPECT_EQ(fromPrivate, both);

    Print untouched{};
    untouched.fill(0xEE);
    const Print before = untouched;
    for (const char* publicBytes : {"", "junk"}) {  // there, but no key: no falling back to the private one
        WriteFileBytes(tree.Keystore() / "public.rsakey", publicBytes);
        EXPECT_EQ(ThumbprintOf(tree.Keystore(), untouched), ZOSIG_E_NO_KEY);
    }
    EXPECT_EQ(ThumbprintOf(tree.Beside("absent"), untouched), ZOSIG_E_NO_KEY);
    EXPECT_EQ(untouched, before);
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(nullptr, untouched.data()), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(L"x", nullptr), kInvalidArgument);
}

TEST(Keys, SigningMakesAPairWhereThereIsNoneThatImports) {
    struct Case {
        const char* privateBytes;  // null: no file
        std::vector<std::string> messages;
    };
    const Case cases[] = {{nullptr, {}}, {kJunk.c_str(), {"2 ImportPrivateKey -> " + kNotSupported}}};
    for (const Case& c : cases) {
        SealedTree tree;
        std::filesystem::remove(tree.Keystore() / "private.rsakey");
        if (c.privateBytes != nullptr) WriteFileBytes(tree.Keystore() / "private.rsakey", c.privateBytes);
        const SignOutcome outcome = tree.Sign();
        ASSERT_EQ(outcome.status, 0);
        std::vector<std::string> expected = c.messages;
        expected.push_back("0 No private key at '" + zo::Utf8FromWide(tree.Keystore().wstring()) +
                           "', generating fresh pair...");
        expected.insert(expected.end(), outcome.messages.end() - 3, outcome.messages.end());
        EXPECT_EQ(outcome.messages, expected);
        EXPECT_NE(ReadFileBytes(tree.Keystore() / "private.rsakey"), Text(DevelopmentKey()));
        // The public file is replaced with it.
        EXPECT_EQ(tree.Verify().status, 0);
        Print print{};
        ASSERT_EQ(ThumbprintOf(tree.Keystore(), print), 0);
        EXPECT_TRUE(std::equal(print.begin(), print.end(), outcome.result.thumbprint));
    }
    SealedTree tree;
    std::filesystem::remove(tree.Keystore() / "private.rsakey");
    std::filesystem::create_directories(tree.Keystore() / "private.rsakey");
    const SignOutcome outcome = tree.Sign();
    EXPECT_EQ(outcome.status, static_cast<std::int32_t>(0x8007001D));
    EXPECT_EQ(outcome.messages.back(), "2 Write private key -> Win32 5");
}

TEST(Keys, VerificationLoadsThePublicFileOrElseThePrivateOne) {
    struct Case {
        const char* publicBytes;  // null: no file
        const char* privateBytes;
        std::int32_t status;
        std::vector<std::string> messages;
    };
    SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string none = "2 cannot load public key from '" + zo::Utf8FromWide(tree.Keystore().wstring()) + "'";
    const std::string good = "good";
    const Case cases[] = {
        {good.c_str(), nullptr, 0, {}},
        {nullptr, good.c_str(), 0, {}},
        {nullptr, nullptr, ZOSIG_E_NO_KEY, {none}},
        {kJunk.c_str(), good.c_str(), ZOSIG_E_NO_KEY, {"2 ImportPublicKey -> " + kNotSupported, none}},
        {nullptr, kJunk.c_str(), ZOSIG_E_NO_KEY, {"2 ImportPrivateKey(forVerify) -> " + kNotSupported, none}},
    };
    for (const Case& c : cases) {
        const auto put = [&](const char* name, const char* bytes, const Bytes& blob) {
            RemoveTree((tree.Keystore() / name).wstring());
            if (bytes != nullptr) WriteFileBytes(tree.Keystore() / name, bytes == good.c_str() ? Text(blob) : bytes);
        };
        put("public.rsakey", c.publicBytes, PublicHalf(DevelopmentKey()));
        put("private.rsakey", c.privateBytes, DevelopmentKey());
        const VerifyOutcome outcome = tree.Verify();
        EXPECT_EQ(outcome.status, c.status) << &c - cases;
        if (c.status == 0) continue;
        EXPECT_EQ(outcome.messages, c.messages) << &c - cases;
    }
}

TEST(Keys, BlobsStandInForTheKeystore) {
    SealedTree tree;
    tree.Write("a", "x");
    Bytes publicBlob = PublicHalf(DevelopmentKey());
    Bytes junk(300, 7);
    struct Case {
        const Bytes& blob;
        std::int32_t signing;
        std::int32_t verifying;
    };
    const std::int32_t notSupported = static_cast<std::int32_t>(0xD00000BB);
    const Case cases[] = {
        {DevelopmentKey(), 0, 0},
        {publicBlob, notSupported, 0},
        {junk, notSupported, notSupported},
    };
    for (const Case& c : cases) {
        const auto use = [&](auto& options) {
            options.keystore = L"not looked at";
            options.keyBlob = c.blob.data();
            options.keyBlobSize = static_cast<std::uint32_t>(c.blob.size());
        };
        const SignOutcome outcome = tree.Sign(use);
        EXPECT_EQ(outcome.status, c.signing) << &c - cases;
        if (c.signing < 0) {
            EXPECT_EQ(outcome.messages, (std::vector<std::string>{"2 ImportKeyBlob -> " + kNotSupported}));
        }
        const VerifyOutcome verified = tree.Verify(use);
        EXPECT_EQ(verified.status, c.verifying) << &c - cases;
        if (c.verifying < 0) {
            EXPECT_EQ(verified.messages, (std::vector<std::string>{"2 ImportKeyBlob -> " + kNotSupported}));
        }
    }
}

}  // namespace
}  // namespace zotest
