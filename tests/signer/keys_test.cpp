// Keystores and key blobs: what is made, loaded, replaced and refused.

#include <gtest/gtest.h>

#include <array>

#include "import_hook.h"
#include "sealed_tree.h"

namespace zotest {
namespace {

constexpr std::int32_t kWriteFault = static_cast<std::int32_t>(0x8007001D);
const std::string kNotSupported = " -> NTSTATUS 0xC00000BB";
const std::string kJunk(300, 'j');

// The thumbprint's digits; empty when the keystore has no key.
std::string ThumbprintOf(const std::filesystem::path& keystore) {
    std::array<std::uint8_t, 32> print;
    print.fill(0xEE);
    const std::int32_t status = ZoSigner_GetPublicKeyThumbprint(keystore.c_str(), print.data());
    if (status == 0) return zo::ToHex(print);
    EXPECT_EQ(status, ZOSIG_E_NO_KEY);
    EXPECT_EQ(std::ranges::count(print, 0xEE), 32) << "untouched";
    return {};
}

TEST(GenerateKeyPair, MakesTheFoldersAndBothFiles) {
    const TempFolder folder;
    const std::filesystem::path keystore = folder / "new" / "keys";
    ASSERT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
    const std::string privateBlob = ReadFileBytes(keystore / "private.rsakey");
    const std::string publicBlob = ReadFileBytes(keystore / "public.rsakey");
    EXPECT_EQ(privateBlob.size(), 1179u);
    EXPECT_EQ(privateBlob.substr(0, 4), "RSA3");
    EXPECT_EQ(publicBlob.substr(0, 24), std::string("RSA1\0\x08\0\0\x03\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0", 24));
    EXPECT_EQ(publicBlob, PublicHalf(privateBlob));
}

TEST(GenerateKeyPair, AlwaysMakesAnotherKey) {
    const TempFolder folder;
    ASSERT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), 0);
    const std::string first = ThumbprintOf(folder.Path());
    ASSERT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), 0);
    EXPECT_NE(ThumbprintOf(folder.Path()), first);
}

TEST(GenerateKeyPair, FailsWhereAFileCannotBeWritten) {
    const TempFolder folder;
    for (const char* name : {"one/private.rsakey", "other/public.rsakey"}) {  // a folder where the file should be
        std::filesystem::create_directories(folder / name);
        EXPECT_EQ(ZoSigner_GenerateKeyPair((folder / name).parent_path().c_str()), kWriteFault);
    }
    EXPECT_EQ(ReadFileBytes(folder / "other" / "private.rsakey").size(), 1179u);
}

TEST(GenerateKeyPair, RaisesAnErrorWhereTheFolderCannotBeMade) {
    const TempFolder folder;
    WriteFileBytes(folder / "file", "");
    EXPECT_THROW(ZoSigner_GenerateKeyPair((folder / "file" / "keys").c_str()), std::filesystem::filesystem_error);
}

TEST(GenerateKeyPair, RequiresAKeystore) {
    EXPECT_EQ(ZoSigner_GenerateKeyPair(nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(L""), kInvalidArgument);
}

TEST(GetPublicKeyThumbprint, RequiresBothArguments) {
    std::uint8_t print[32];
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(nullptr, print), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(L"x", nullptr), kInvalidArgument);
}

// ---- A keystore without a private key

struct FreshPair : testing::Test {
    const SealedTree tree;
    const std::filesystem::path file = tree.keystore / "private.rsakey";
    const std::string making =
        "0 No private key at '" + zo::Utf8FromWide(tree.keystore.wstring()) + "', generating fresh pair...";

    // Signing makes a pair, reports this, and verification takes the new public key.
    void ExpectMade(const Lines& messages) const {
        const auto outcome = tree.Sign();
        ASSERT_EQ(outcome.status, 0);
        EXPECT_EQ(Lines(outcome.messages.begin(), outcome.messages.end() - 3), messages);
        EXPECT_EQ(tree.Verify().status, 0);
        EXPECT_EQ(ThumbprintOf(tree.keystore), zo::ToHex(outcome.result.thumbprint));
        EXPECT_NE(ReadFileBytes(file), PrivateKey());
    }
    void ExpectFailed(const std::string& message) const {
        const auto outcome = tree.Sign();
        EXPECT_EQ(outcome.status, kWriteFault);
        EXPECT_EQ(outcome.messages, (Lines{making, message}));
    }
};

TEST_F(FreshPair, IsMadeWhereThereIsNoPrivateKey) {
    std::filesystem::remove(file);
    ExpectMade({making});
}

TEST_F(FreshPair, IsMadeWhereThePrivateKeyDoesNotImport) {
    WriteFileBytes(file, kJunk);
    ExpectMade({"2 ImportPrivateKey" + kNotSupported, making});
}

TEST_F(FreshPair, FailsWithAMessageWhenItCannotBeWritten) {
    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    ExpectFailed("2 Write private key -> Win32 5");
}

NTSTATUS WINAPI RefusePublicExport(BCRYPT_KEY_HANDLE key, BCRYPT_KEY_HANDLE with, const wchar_t* type, UCHAR* output,
                                   ULONG size, ULONG* written, ULONG flags) {
    if (std::wstring_view(type) == BCRYPT_RSAPUBLIC_BLOB) return static_cast<NTSTATUS>(0xC0000001);
    return BCryptExportKey(key, with, type, output, size, written, flags);
}

TEST_F(FreshPair, WritesNeitherFileWhenThePublicHalfCannotBeExported) {
    std::filesystem::remove(file);
    const ImportHook hook("BCryptExportKey", RefusePublicExport);
    ExpectFailed("2 ExportPublic -> NTSTATUS 0xC0000001");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(ReadFileBytes(tree.keystore / "public.rsakey"), PublicHalf(PrivateKey()));
}

// ---- The access list of the private key's file

std::uint32_t writeDacError;  // of an open that asks for WRITE_DAC
int writeDacOpens;

HANDLE WINAPI CreateWithoutWriteDac(const wchar_t* path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                                    DWORD disposition, DWORD flags, HANDLE model) {
    if ((access & WRITE_DAC) == 0) return CreateFileW(path, access, sharing, security, disposition, flags, model);
    ++writeDacOpens;
    SetLastError(writeDacError);
    return INVALID_HANDLE_VALUE;
}

struct ForeignFile : testing::Test {
    const TempFolder folder;
    const std::filesystem::path file = folder / "private.rsakey";
    const ImportHook hook{"CreateFileW", CreateWithoutWriteDac};

    void SetUp() override {
        writeDacOpens = 0;
        WriteFileBytes(file, "foreign");
        std::filesystem::create_hard_link(file, folder / "same file");
    }
};

TEST_F(ForeignFile, IsReplacedByANewFileWhenItsAccessListCannotBeSet) {
    writeDacError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), 0);
    EXPECT_EQ(ReadFileBytes(folder / "same file"), "foreign") << "the key went into a file of another's list";
    EXPECT_EQ(ReadFileBytes(file).size(), 1179u);
    EXPECT_EQ(writeDacOpens, 1);
}

BOOL WINAPI DeleteNothing(const wchar_t*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

TEST_F(ForeignFile, StaysWhenItCannotBeDeletedEither) {
    writeDacError = ERROR_ACCESS_DENIED;
    const ImportHook deletion("DeleteFileW", DeleteNothing);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), kWriteFault);
    EXPECT_EQ(ReadFileBytes(file), "foreign");
}

TEST_F(ForeignFile, StaysWhenItIsInUse) {
    writeDacError = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), kWriteFault);
    EXPECT_EQ(ReadFileBytes(file), "foreign");
}

// ---- Which key verification takes

TEST(VerificationKey, IsThePublicFileOrElseThePrivateOne) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string none = "2 cannot load public key from '" + zo::Utf8FromWide(tree.keystore.wstring()) + "'";
    const std::string summary = "0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1";
    const std::string publicKey = PublicHalf(PrivateKey());
    const std::string other = publicKey.substr(0, 282) + static_cast<char>(publicKey[282] ^ 2);
    const struct {
        const char* name;
        std::string publicBytes;  // empty: no file
        std::string privateBytes;
        std::int32_t status;
        Lines messages;
    } rows[] = {
        {"public only", publicKey, "", 0, {summary}},
        {"private only", "", PrivateKey(), 0, {summary}},
        {"neither", "", "", ZOSIG_E_NO_KEY, {none}},
        {"bad public", kJunk, PrivateKey(), ZOSIG_E_NO_KEY, {"2 ImportPublicKey" + kNotSupported, none}},
        {"bad private", "", kJunk, ZOSIG_E_NO_KEY, {"2 ImportPrivateKey(forVerify)" + kNotSupported, none}},
        {"public of another pair",
         other,
         PrivateKey(),
         ZOSIG_E_TAMPERED,
         {"2 manifest body has been tampered with (MSIG verify -> 0xC000A000)"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        RemoveTree(tree.keystore.wstring());
        if (!row.publicBytes.empty()) WriteFileBytes(tree.keystore / "public.rsakey", row.publicBytes);
        if (!row.privateBytes.empty()) WriteFileBytes(tree.keystore / "private.rsakey", row.privateBytes);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.messages, row.messages);
        const std::string print = Sha256Hex(row.publicBytes == other ? other : publicKey);
        EXPECT_EQ(ThumbprintOf(tree.keystore), row.status == ZOSIG_E_NO_KEY ? "" : print);
    }
}

// ---- Key blobs

constexpr std::uint32_t kTooShort = 0xC000000D;
constexpr std::uint32_t kDoesNotFit = 0xC00000BB;

struct BlobRow {
    const char* name;
    std::string bytes;
    std::uint32_t size;
    std::uint32_t verifying;  // the NTSTATUS of the import, 0 when it is taken
    std::uint32_t signing = kDoesNotFit;
};

// One number of the header replaced.
std::string With(std::string blob, std::size_t field, std::uint32_t value) {
    std::memcpy(&blob[field * 4], &value, 4);
    return blob;
}

std::vector<BlobRow> BlobRows() {
    const std::string full = PrivateKey();
    const std::string half = PublicHalf(full);
    const auto whole = [](const char* name, const std::string& bytes, std::uint32_t verifying,
                          std::uint32_t signing = kDoesNotFit) {
        return BlobRow{name, bytes, static_cast<std::uint32_t>(bytes.size()), verifying, signing};
    };
    return {
        whole("full private", full, 0, 0),
        whole("public", half, 0),
        whole("junk", kJunk, kDoesNotFit),
        {"one byte", full, 1, kTooShort, kTooShort},
        {"less than a public header", half, 23, kTooShort, kTooShort},
        {"public header with the key behind it", half, 24, kDoesNotFit},
        {"private header with the key behind it", full, 24, kDoesNotFit},
        {"public cut by a byte", half, 282, kDoesNotFit},
        {"private cut to its public half", full, 283, kDoesNotFit},
        {"private cut by a byte", full, 1178, kDoesNotFit},
        whole("public with a byte behind it", half + "x", kDoesNotFit),
        whole("private with a byte behind it", full + "x", kDoesNotFit),
        whole("private named RSA2", With(full, 0, 0x32415352), kDoesNotFit),
        whole("private named public", With(full, 0, 0x31415352), kDoesNotFit),
        whole("public of 1024 bits", With(half, 1, 1024), kDoesNotFit),
        whole("private of 4096 bits", With(full, 1, 4096), kDoesNotFit),
        whole("exponent of no bytes", With(half, 2, 0).erase(24, 3), kDoesNotFit),
        whole("exponent longer than 32 bits count", With(half, 2, 0xFFFFFFFF), kDoesNotFit),
        whole("sizes that make up for each other", With(With(half, 2, 4), 3, 255), kDoesNotFit),
        whole("primes that make up for each other", With(With(full, 4, 126), 5, 131), kDoesNotFit),
        whole("private without primes", With(With(full, 4, 0), 5, 0), kDoesNotFit),
    };
}

template <typename Outcome>
void ExpectImport(const Outcome& outcome, std::uint32_t status, bool isTaken) {
    if (isTaken) {
        EXPECT_EQ(outcome.status, 0);
        return;
    }
    EXPECT_EQ(zo::Bits(outcome.status), status | 0x10000000);
    EXPECT_EQ(outcome.messages, Lines{zo::Format("2 ImportKeyBlob -> NTSTATUS 0x{:08X}", status)});
}

TEST(KeyBlob, IsCheckedAgainstItsHeader) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    for (const BlobRow& row : BlobRows()) {
        SCOPED_TRACE(row.name);
        const auto use = [&row](auto& options) {
            options.keystore = nullptr;
            options.keyBlob = reinterpret_cast<const std::uint8_t*>(row.bytes.data());
            options.keyBlobSize = row.size;
        };
        ExpectImport(tree.Verify(use), row.verifying, row.verifying == 0);
        ExpectImport(tree.Sign(use), row.signing, row.signing == 0);
    }
}

TEST(KeyBlob, IsCheckedInFilesToo) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    for (const BlobRow& row : BlobRows()) {
        SCOPED_TRACE(row.name);
        WriteFileBytes(tree.keystore / "public.rsakey", row.bytes.substr(0, row.size));
        const auto outcome = tree.Verify();
        if (row.verifying == 0 && row.signing != 0) {
            EXPECT_EQ(outcome.status, 0);
            continue;
        }
        EXPECT_EQ(outcome.status, ZOSIG_E_NO_KEY);  // a public file holds no private key
        const std::uint32_t status = row.verifying == 0 ? kDoesNotFit : row.verifying;
        EXPECT_EQ(outcome.messages[0], zo::Format("2 ImportPublicKey -> NTSTATUS 0x{:08X}", status));
    }
}

TEST(KeyBlob, MakesTheKeystoreUnneeded) {
    const SealedTree tree;
    const std::string key = PrivateKey();
    const auto use = [&key](auto& options) {
        options.keystore = L"not looked at";
        options.keyBlob = reinterpret_cast<const std::uint8_t*>(key.data());
        options.keyBlobSize = static_cast<std::uint32_t>(key.size());
    };
    EXPECT_EQ(tree.Sign(use).status, 0);
    EXPECT_EQ(tree.Verify(use).status, 0);
}

}  // namespace
}  // namespace zotest
