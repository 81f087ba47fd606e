// Keystores: what is made, loaded, replaced and refused.

#include <gtest/gtest.h>
#include <windows.h>

#include <array>

#include "hex.h"
#include "sealed_tree.h"
#include "text.h"

namespace zotest {
namespace {

using Print = std::array<std::uint8_t, 32>;

constexpr std::int32_t kWriteFault = static_cast<std::int32_t>(0x8007001D);
const std::string kNotSupported = " -> NTSTATUS 0xC00000BB";
const std::string kJunk(300, 'j');

std::int32_t ThumbprintOf(const std::filesystem::path& keystore, Print& print) {
    return ZoSigner_GetPublicKeyThumbprint(keystore.c_str(), print.data());
}

TEST(Keys, GenerateMakesTheKeystoreAndItsFoldersAndAlwaysReplaces) {
    const TempFolder folder;
    const std::filesystem::path keystore = folder / "new" / "keys";
    Print prints[2] = {};
    for (Print& print : prints) {
        ASSERT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
        EXPECT_EQ(ThumbprintOf(keystore, print), 0);
    }
    EXPECT_NE(prints[0], prints[1]);
    const std::string privateBlob = ReadFileBytes(keystore / "private.rsakey");
    const std::string publicBlob = ReadFileBytes(keystore / "public.rsakey");
    EXPECT_EQ(privateBlob.size(), 1179u);
    EXPECT_EQ(privateBlob.substr(0, 4), "RSA3");
    EXPECT_EQ(publicBlob.size(), 283u);
    EXPECT_EQ(publicBlob.substr(0, 24), std::string("RSA1\0\x08\0\0\x03\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0", 24));
    EXPECT_EQ(publicBlob, Text(PublicHalf({privateBlob.begin(), privateBlob.end()})));
}

TEST(Keys, GenerateTellsWhatItCannotDo) {
    const TempFolder folder;
    EXPECT_EQ(ZoSigner_GenerateKeyPair(nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(L""), kInvalidArgument);
    std::filesystem::create_directories(folder / "keys" / "private.rsakey");  // a folder where the file should be
    EXPECT_EQ(ZoSigner_GenerateKeyPair((folder / "keys").c_str()), kWriteFault);
    std::filesystem::create_directories(folder / "other" / "public.rsakey");
    EXPECT_EQ(ZoSigner_GenerateKeyPair((folder / "other").c_str()), kWriteFault);
    EXPECT_EQ(ReadFileBytes(folder / "other" / "private.rsakey").size(), 1179u);
    WriteFileBytes(folder / "file", "x");
    EXPECT_THROW(ZoSigner_GenerateKeyPair((folder / "file" / "keys").c_str()), std::filesystem::filesystem_error);
}

TEST(Keys, ThumbprintIsTheDigestOfThePublicBlobFromEitherHalf) {
    const SealedTree tree;
    Print print{};
    for (int half = 0; half < 2; ++half) {
        ASSERT_EQ(ThumbprintOf(tree.Keystore(), print), 0);
        EXPECT_EQ(zo::ToHex(print), Sha256Hex(Text(DevelopmentPublicKey())));
        std::filesystem::remove(tree.Keystore() / "public.rsakey");
    }
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
    for (const bool isJunk : {false, true}) {
        const SealedTree tree;
        std::filesystem::remove(tree.Keystore() / "private.rsakey");
        if (isJunk) WriteFileBytes(tree.Keystore() / "private.rsakey", kJunk);
        const auto outcome = tree.Sign();
        ASSERT_EQ(outcome.status, 0);
        Lines expected = isJunk ? Lines{"2 ImportPrivateKey" + kNotSupported} : Lines{};
        expected.push_back("0 No private key at '" + zo::Utf8FromWide(tree.Keystore().wstring()) +
                           "', generating fresh pair...");
        expected.insert(expected.end(), outcome.messages.end() - 3, outcome.messages.end());
        EXPECT_EQ(outcome.messages, expected);
        EXPECT_NE(ReadFileBytes(tree.Keystore() / "private.rsakey"), Text(DevelopmentKey()));
        EXPECT_EQ(tree.Verify().status, 0) << "the public file is replaced with it";
        Print print{};
        ASSERT_EQ(ThumbprintOf(tree.Keystore(), print), 0);
        EXPECT_TRUE(std::equal(print.begin(), print.end(), outcome.result.thumbprint));
    }
    const SealedTree tree;
    std::filesystem::remove(tree.Keystore() / "private.rsakey");
    std::filesystem::create_directories(tree.Keystore() / "private.rsakey");
    const auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, kWriteFault);
    EXPECT_EQ(outcome.messages.back(), "2 Write private key -> Win32 5");
}

TEST(Keys, VerificationLoadsThePublicFileOrElseThePrivateOne) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string none = "2 cannot load public key from '" + zo::Utf8FromWide(tree.Keystore().wstring()) + "'";
    const std::string summary = "0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1";
    const std::string publicKey = Text(DevelopmentPublicKey());
    const std::string privateKey = Text(DevelopmentKey());
    const std::string other = Text([] {
        Bytes key = DevelopmentPublicKey();
        key.back() ^= 2;
        return key;
    }());
    const struct {
        std::string publicBytes;  // empty: no file
        std::string privateBytes;
        std::int32_t status;
        Lines messages;
    } rows[] = {
        {publicKey, "", 0, {summary}},
        {"", privateKey, 0, {summary}},
        {"", "", ZOSIG_E_NO_KEY, {none}},
        {kJunk, privateKey, ZOSIG_E_NO_KEY, {"2 ImportPublicKey" + kNotSupported, none}},
        {"", kJunk, ZOSIG_E_NO_KEY, {"2 ImportPrivateKey(forVerify)" + kNotSupported, none}},
        {other, privateKey, ZOSIG_E_TAMPERED, {"2 manifest body has been tampered with (MSIG verify -> 0xC000A000)"}},
    };
    for (const auto& row : rows) {
        RemoveTree(tree.Keystore().wstring());
        if (!row.publicBytes.empty()) WriteFileBytes(tree.Keystore() / "public.rsakey", row.publicBytes);
        if (!row.privateBytes.empty()) WriteFileBytes(tree.Keystore() / "private.rsakey", row.privateBytes);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.status) << &row - rows;
        EXPECT_EQ(outcome.messages, row.messages) << &row - rows;
    }
}

TEST(Keys, BlobsStandInForTheKeystore) {
    const SealedTree tree;
    constexpr std::int32_t kRefused = static_cast<std::int32_t>(0xD00000BB);
    const struct {
        Bytes blob;
        std::int32_t signing;
        std::int32_t verifying;
    } rows[] = {
        {DevelopmentKey(), 0, 0},
        {DevelopmentPublicKey(), kRefused, 0},
        {Bytes(300, 7), kRefused, kRefused},
    };
    for (const auto& row : rows) {
        const auto use = [&](auto& options) {
            options.keystore = L"not looked at";
            options.keyBlob = row.blob.data();
            options.keyBlobSize = static_cast<std::uint32_t>(row.blob.size());
        };
        const auto signing = tree.Sign(use);
        const auto verifying = tree.Verify(use);
        EXPECT_EQ(signing.status, row.signing) << &row - rows;
        EXPECT_EQ(verifying.status, row.verifying) << &row - rows;
        const Lines refused{"2 ImportKeyBlob" + kNotSupported};
        EXPECT_EQ(signing.messages == refused, row.signing < 0) << &row - rows;
        EXPECT_EQ(verifying.messages == refused, row.verifying < 0) << &row - rows;
    }
}

}  // namespace
}  // namespace zotest
