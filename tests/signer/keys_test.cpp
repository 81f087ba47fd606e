// Keystores: what is made, loaded, replaced and refused.

#include <gtest/gtest.h>

#include <array>

#include "sealed_tree.h"

namespace zotest {
namespace {

using Print = std::array<std::uint8_t, 32>;

constexpr std::int32_t kWriteFault = static_cast<std::int32_t>(0x8007001D);
const std::string kNotSupported = " -> NTSTATUS 0xC00000BB";
const std::string kJunk(300, 'j');

// The thumbprint's digits, or none.
std::string PrintOf(const std::filesystem::path& keystore) {
    Print print;
    print.fill(0xEE);
    const std::int32_t status = ZoSigner_GetPublicKeyThumbprint(keystore.c_str(), print.data());
    if (status == 0) return zo::ToHex(print);
    EXPECT_EQ(status, ZOSIG_E_NO_KEY);
    EXPECT_EQ(std::ranges::count(print, 0xEE), 32) << "untouched";
    return {};
}

TEST(Keys, GenerateMakesTheKeystoreAndItsFoldersAndAlwaysReplaces) {
    const TempFolder folder;
    const std::filesystem::path keystore = folder / "new" / "keys";
    ASSERT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
    const std::string first = PrintOf(keystore);
    ASSERT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
    EXPECT_NE(PrintOf(keystore), first);
    const std::string privateBlob = ReadFileBytes(keystore / "private.rsakey");
    const std::string publicBlob = ReadFileBytes(keystore / "public.rsakey");
    EXPECT_EQ(privateBlob.size(), 1179u);
    EXPECT_EQ(privateBlob.substr(0, 4), "RSA3");
    EXPECT_EQ(publicBlob.substr(0, 24), std::string("RSA1\0\x08\0\0\x03\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0", 24));
    EXPECT_EQ(publicBlob, PublicHalf(privateBlob));

    EXPECT_EQ(ZoSigner_GenerateKeyPair(nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(L""), kInvalidArgument);
    for (const char* name : {"one/private.rsakey", "other/public.rsakey"}) {  // a folder where the file should be
        std::filesystem::create_directories(folder / name);
        EXPECT_EQ(ZoSigner_GenerateKeyPair((folder / name).parent_path().c_str()), kWriteFault);
    }
    EXPECT_EQ(ReadFileBytes(folder / "other" / "private.rsakey").size(), 1179u);
    EXPECT_THROW(ZoSigner_GenerateKeyPair((keystore / "public.rsakey" / "keys").c_str()),
                 std::filesystem::filesystem_error);
}

TEST(Keys, SigningMakesAPairWhereThereIsNoneThatImports) {
    const SealedTree tree;
    const std::filesystem::path file = tree.keystore / "private.rsakey";
    const std::string making =
        "0 No private key at '" + zo::Utf8FromWide(tree.keystore.wstring()) + "', generating fresh pair...";
    for (const Lines& told : {Lines{making}, Lines{"2 ImportPrivateKey" + kNotSupported, making}}) {
        std::filesystem::remove(file);
        if (told.size() == 2) WriteFileBytes(file, kJunk);
        const auto outcome = tree.Sign();
        ASSERT_EQ(outcome.status, 0);
        EXPECT_EQ(Lines(outcome.messages.begin(), outcome.messages.end() - 3), told);
        EXPECT_EQ(tree.Verify().status, 0) << "the public file is replaced with it";
        EXPECT_EQ(PrintOf(tree.keystore), zo::ToHex(outcome.result.thumbprint));
    }
    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    const auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, kWriteFault);
    EXPECT_EQ(outcome.messages.back(), "2 Write private key -> Win32 5");
}

TEST(Keys, VerificationAndThumbprintTakeThePublicFileOrElseThePrivateOne) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string none = "2 cannot load public key from '" + zo::Utf8FromWide(tree.keystore.wstring()) + "'";
    const std::string summary = "0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1";
    const std::string publicKey = PublicHalf(PrivateKey());
    const std::string other = publicKey.substr(0, 282) + static_cast<char>(publicKey[282] ^ 2);
    const struct {
        std::string publicBytes;  // empty: no file
        std::string privateBytes;
        std::int32_t status;
        Lines messages;
    } rows[] = {
        {publicKey, "", 0, {summary}},
        {"", PrivateKey(), 0, {summary}},
        {"", "", ZOSIG_E_NO_KEY, {none}},
        {kJunk, PrivateKey(), ZOSIG_E_NO_KEY, {"2 ImportPublicKey" + kNotSupported, none}},
        {"", kJunk, ZOSIG_E_NO_KEY, {"2 ImportPrivateKey(forVerify)" + kNotSupported, none}},
        {other, PrivateKey(), ZOSIG_E_TAMPERED, {"2 manifest body has been tampered with (MSIG verify -> 0xC000A000)"}},
    };
    for (const auto& row : rows) {
        RemoveTree(tree.keystore.wstring());
        if (!row.publicBytes.empty()) WriteFileBytes(tree.keystore / "public.rsakey", row.publicBytes);
        if (!row.privateBytes.empty()) WriteFileBytes(tree.keystore / "private.rsakey", row.privateBytes);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.status) << &row - rows;
        EXPECT_EQ(outcome.messages, row.messages) << &row - rows;
        const std::string print = Sha256Hex(row.publicBytes == other ? other : publicKey);
        EXPECT_EQ(PrintOf(tree.keystore), row.status == ZOSIG_E_NO_KEY ? "" : print) << &row - rows;
    }
    Print print;
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(nullptr, print.data()), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(L"x", nullptr), kInvalidArgument);
}

TEST(Keys, BlobsStandInForTheKeystore) {
    const SealedTree tree;
    constexpr std::int32_t kRefused = static_cast<std::int32_t>(0xD00000BB);
    const struct {
        std::string blob;
        std::int32_t signing;
        std::int32_t verifying;
    } rows[] = {{PrivateKey(), 0, 0}, {PublicHalf(PrivateKey()), kRefused, 0}, {kJunk, kRefused, kRefused}};
    for (const auto& row : rows) {
        const auto use = [&row](auto& options) {
            options.keystore = row.signing == 0 ? nullptr : L"not looked at";
            options.keyBlob = reinterpret_cast<const std::uint8_t*>(row.blob.data());
            options.keyBlobSize = static_cast<std::uint32_t>(row.blob.size());
        };
        const auto check = [](std::int32_t expected, const auto& outcome) {
            EXPECT_EQ(outcome.status, expected);
            const Lines refused{"2 ImportKeyBlob" + kNotSupported};
            EXPECT_TRUE(expected == 0 || outcome.messages == refused);
        };
        check(row.signing, tree.Sign(use));
        check(row.verifying, tree.Verify(use));
    }
}

}  // namespace
}  // namespace zotest
