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

TEST(KeystoreExports, RequireTheirArguments) {
    std::uint8_t print[32];
    EXPECT_EQ(ZoSigner_GenerateKeyPair(nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(L""), kInvalidArgument);
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
};

TEST_F(FreshPair, IsMadeWhereThePrivateKeyIsMissingOrDoesNotImport) {
    std::filesystem::remove(file);
    ExpectMade({making});
    WriteFileBytes(file, kJunk);
    ExpectMade({"2 ImportPrivateKey" + kNotSupported, making});
}

TEST_F(FreshPair, FailsWithAMessageWhenItCannotBeWritten) {
    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    tree.Sign().Expect(kWriteFault, {making, "2 Write private key -> Win32 5"});
}

NTSTATUS WINAPI RefusePublicExport(BCRYPT_KEY_HANDLE key, BCRYPT_KEY_HANDLE with, const wchar_t* type, UCHAR* output,
                                   ULONG size, ULONG* written, ULONG flags) {
    if (std::wstring_view(type) == BCRYPT_RSAPUBLIC_BLOB) return static_cast<NTSTATUS>(0xC0000001);
    return BCryptExportKey(key, with, type, output, size, written, flags);
}

TEST_F(FreshPair, WritesNeitherFileWhenThePublicHalfCannotBeExported) {
    std::filesystem::remove(file);
    const ImportHook hook("BCryptExportKey", RefusePublicExport);
    tree.Sign().Expect(kWriteFault, {making, "2 ExportPublic -> NTSTATUS 0xC0000001"});
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

bool deletionFails;

BOOL WINAPI DeleteUnlessRefused(const wchar_t* path) {
    if (!deletionFails) return DeleteFileW(path);
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

TEST(GenerateKeyPair, WritesNoKeyIntoAFileWhoseAccessListCannotBeSet) {
    // With whether deletion fails and whether the file is replaced by a new one.
    const Rows<std::uint32_t, bool, bool> rows = {
        {"access denied", ERROR_ACCESS_DENIED, false, true},
        {"access denied, deletion too", ERROR_ACCESS_DENIED, true, false},
        {"in use", ERROR_SHARING_VIOLATION, false, false},
    };
    const ImportHook creation("CreateFileW", CreateWithoutWriteDac);
    const ImportHook deletion("DeleteFileW", DeleteUnlessRefused);
    for (const auto& [name, error, cannotDelete, isReplaced] : rows) {
        SCOPED_TRACE(name);
        const TempFolder folder;
        WriteFileBytes(folder / "private.rsakey", "foreign");
        std::filesystem::create_hard_link(folder / "private.rsakey", folder / "same file");
        writeDacOpens = 0;
        writeDacError = error;
        deletionFails = cannotDelete;
        EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), isReplaced ? 0 : kWriteFault);
        EXPECT_EQ(ReadFileBytes(folder / "same file"), "foreign");
        EXPECT_EQ(ReadFileBytes(folder / "private.rsakey").size(), isReplaced ? 1179u : 7u);
        EXPECT_EQ(writeDacOpens, 1);
    }
}

// ---- Which key verification takes

TEST(VerificationKey, IsThePublicFileOrElseThePrivateOne) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string none = "2 cannot load public key from '" + zo::Utf8FromWide(tree.keystore.wstring()) + "'";
    const std::string summary = "0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1";
    const Lines badPublic{"2 ImportPublicKey" + kNotSupported, none};
    const Lines badPrivate{"2 ImportPrivateKey(forVerify)" + kNotSupported, none};
    const std::string full = PrivateKey();
    const std::string half = PublicHalf(full);
    const std::string cut = half.substr(0, 282);
    const std::string other = cut + static_cast<char>(half[282] ^ 2);
    // The bytes of the public file (empty: there is none) and of the private one.
    const Rows<std::string, std::string, std::int32_t, Lines> rows = {
        {"public only", half, "", 0, {summary}},
        {"private only", "", full, 0, {summary}},
        {"neither", "", "", ZOSIG_E_NO_KEY, {none}},
        {"bad public", kJunk, full, ZOSIG_E_NO_KEY, badPublic},
        {"public cut by a byte", cut, full, ZOSIG_E_NO_KEY, badPublic},
        {"bad private", "", kJunk, ZOSIG_E_NO_KEY, badPrivate},
        {"public of another pair", other, full, ZOSIG_E_TAMPERED, {kTampered}},
    };
    for (const auto& [name, publicBytes, privateBytes, status, messages] : rows) {
        SCOPED_TRACE(name);
        RemoveTree(tree.keystore.wstring());
        if (!publicBytes.empty()) WriteFileBytes(tree.keystore / "public.rsakey", publicBytes);
        if (!privateBytes.empty()) WriteFileBytes(tree.keystore / "private.rsakey", privateBytes);
        tree.Verify().Expect(status, messages);
        const std::string print = Sha256Hex(publicBytes == other ? other : half);
        EXPECT_EQ(ThumbprintOf(tree.keystore), status == ZOSIG_E_NO_KEY ? "" : print);
    }
}

// ---- Key blobs

constexpr std::uint32_t kTooShort = 0xC000000D;
constexpr std::uint32_t kDoesNotFit = 0xC00000BB;

struct BlobRow {
    const char* name;
    std::string bytes;
    std::uint32_t verifying = kDoesNotFit;  // the NTSTATUS of the import, 0 when it is taken
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
    return {
        {"full private", full, 0, 0},
        {"public", half, 0},
        {"less than a public header", half.substr(0, 23), kTooShort, kTooShort},
        {"public header", half.substr(0, 24)},
        {"private header", full.substr(0, 24)},
        {"public cut by a byte", half.substr(0, 282)},
        {"private cut by a byte", full.substr(0, 1178)},
        {"public with a byte behind it", half + "x"},
        {"private with a byte behind it", full + "x"},
        {"private named RSA2", With(full, 0, 0x32415352)},
        {"private named public", With(full, 0, 0x31415352)},
        {"public of 1024 bits", With(half, 1, 1024)},
        {"private of 4096 bits", With(full, 1, 4096)},
        {"exponent of no bytes", With(half, 2, 0).erase(24, 3)},
        {"exponent longer than 32 bits count", With(half, 2, 0xFFFFFFFF).substr(0, 279)},
        {"sizes that make up for each other", With(With(half, 2, 4), 3, 255)},
        {"primes that make up for each other", With(With(full, 4, 126), 5, 131)},
        {"first prime of another size", With(full, 4, 126)},
        {"private without primes", With(With(full, 4, 0), 5, 0)},
    };
}

template <typename Outcome>
void ExpectImport(const Outcome& outcome, std::uint32_t status) {
    EXPECT_EQ(zo::Bits(outcome.status), status == 0 ? 0 : status | 0x10000000);
    if (status == 0) return;
    EXPECT_EQ(outcome.messages, Lines{zo::Format("2 ImportKeyBlob -> NTSTATUS 0x{:08X}", status)});
}

TEST(KeyBlob, IsCheckedAgainstItsHeaderAndTakenInsteadOfTheKeystore) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    for (const BlobRow& row : BlobRows()) {
        SCOPED_TRACE(row.name);
        const auto use = [&row](auto& options) {
            options.keyBlob = reinterpret_cast<const std::uint8_t*>(row.bytes.data());
            options.keyBlobSize = static_cast<std::uint32_t>(row.bytes.size());
        };
        const auto useAlone = [&use](auto& options) {
            use(options);
            options.keystore = nullptr;
        };
        ExpectImport(tree.Verify(use), row.verifying);
        ExpectImport(tree.Sign(useAlone), row.signing);
    }
}

}  // namespace
}  // namespace zotest
