// Keystores and key blobs: what is made, loaded, replaced and refused.

#include <windows.h>
// It needs windows.h before it.
#include <sddl.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

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
    const std::filesystem::path keystore = folder / std::string(150, 'n') / std::string(150, 'k');  // a long path
    ASSERT_EQ(ZoSigner_GenerateKeyPair(keystore.c_str()), 0);
    const std::string privateBlob = ReadFileBytes(keystore / "private.rsakey");
    const std::string publicBlob = ReadFileBytes(keystore / "public.rsakey");
    EXPECT_EQ(privateBlob.size(), 1179u);
    EXPECT_EQ(privateBlob.substr(0, 4), "RSA3");
    EXPECT_EQ(publicBlob.substr(0, 24), std::string("RSA1\0\x08\0\0\x03\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0", 24));
    EXPECT_EQ(publicBlob, PublicHalf(privateBlob));
}

TEST(GenerateKeyPair, FailsWhereThePublicKeyCannotBeWritten) {
    const TempFolder folder;
    WriteFileBytes(folder / "public.rsakey", "");
    const zo::OwnedFile held = Hold(folder / "public.rsakey", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), kWriteFault);
    EXPECT_EQ(ReadFileBytes(folder / "private.rsakey").size(), 1179u);
}

TEST(GenerateKeyPair, RaisesAnErrorWhereTheFolderCannotBeMade) {
    const TempFolder folder;
    WriteFileBytes(folder / "file", "");
    EXPECT_THROW(ZoSigner_GenerateKeyPair((folder / "file" / "keys").c_str()), std::filesystem::filesystem_error);
}

TEST(KeystoreExports, RequireTheirArguments) {
    std::uint8_t print[32];
    EXPECT_EQ(ZoSigner_GenerateKeyPair(nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GenerateKeyPair(L"\0x"), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(nullptr, print), kInvalidArgument);
    EXPECT_EQ(ZoSigner_GetPublicKeyThumbprint(L"x", nullptr), kInvalidArgument);
}

// ---- A keystore without a private key

struct FreshPair : testing::Test {
    const SealedTree tree;
    const std::filesystem::path file = tree.keystore / "private.rsakey";
    const std::string making =
        "0 No private key at '" + zo::Utf8FromWide(tree.keystore.wstring()) + "', generating fresh pair...";
};

TEST_F(FreshPair, IsMadeWhereThePrivateKeyIsMissingOrDoesNotImport) {
    const Rows<std::string, Lines> rows = {{"missing", "", {making}},
                                           {"junk", kJunk, {"2 ImportPrivateKey" + kNotSupported, making}}};
    for (const auto& [name, bytes, messages] : rows) {
        SCOPED_TRACE(name);
        std::filesystem::remove(file);
        if (!bytes.empty()) WriteFileBytes(file, bytes);
        const auto outcome = tree.Sign();
        ASSERT_EQ(outcome.status, 0);
        EXPECT_EQ(Lines(outcome.messages.begin(), outcome.messages.end() - 3), messages);
        EXPECT_EQ(tree.Verify().status, 0) << "takes the new public key";
        EXPECT_EQ(ThumbprintOf(tree.keystore), zo::ToHex(outcome.result.thumbprint));
        EXPECT_NE(ReadFileBytes(file), PrivateKey());
    }
}

TEST_F(FreshPair, FailsWithAMessageWhenItCannotBeWritten) {
    for (const std::string half : {"private", "public"}) {
        std::filesystem::remove_all(tree.keystore);
        std::filesystem::create_directories(tree.keystore / (half + ".rsakey"));  // where the file should be
        tree.Sign().Expect(kWriteFault, {making, "2 Write " + half + " key -> Win32 5"});
    }
}

TEST_F(FreshPair, FailsWithAMessageWhenItCannotBeMade) {
    std::filesystem::remove(file);
    const ImportHook hook("BCryptFinalizeKeyPair", BCryptFinalizeKeyPair,
                          [](auto, auto) { return static_cast<NTSTATUS>(0xC0000001); });
    tree.Sign().Expect(static_cast<std::int32_t>(0xD0000001), {making, "2 GenerateKeyPair -> NTSTATUS 0xC0000001"});
}

TEST_F(FreshPair, WritesNeitherFileWhenOneHalfCannotBeExported) {
    std::filesystem::remove(file);
    std::wstring_view refused;
    const ImportHook hook(
        "BCryptExportKey", BCryptExportKey, [&](auto key, auto with, const wchar_t* type, auto... rest) {
            return type == refused ? static_cast<NTSTATUS>(0xC0000001) : BCryptExportKey(key, with, type, rest...);
        });
    for (const std::string half : {"Private", "Public"}) {
        refused = half == "Public" ? BCRYPT_RSAPUBLIC_BLOB : BCRYPT_RSAFULLPRIVATE_BLOB;
        tree.Sign().Expect(kWriteFault, {making, "2 Export" + half + " -> NTSTATUS 0xC0000001"});
        EXPECT_FALSE(std::filesystem::exists(file));
        EXPECT_EQ(ReadFileBytes(tree.keystore / "public.rsakey"), PublicHalf(PrivateKey()));
    }
}

// ---- The access list of the private key's file

TEST(GenerateKeyPair, LetsTheUserTheSystemAndAdministratorsAloneReadThePrivateKey) {
    std::string access;
    const ImportHook hook("SetKernelObjectSecurity", SetKernelObjectSecurity,
                          [&access](HANDLE file, SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor) {
                              zo::OwnedLocalMemory owner;
                              LPWSTR text = nullptr;
                              ConvertSecurityDescriptorToStringSecurityDescriptorW(
                                  descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr);
                              owner.Reset(text);
                              access = zo::Utf8FromWide(text);
                              EXPECT_EQ(information, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION);
                              return SetKernelObjectSecurity(file, information, descriptor);
                          });
    DWORD attributes = 0;
    const ImportHook marking("SetFileAttributesW", SetFileAttributesW, [&attributes](const wchar_t* path, DWORD set) {
        attributes = set;
        return SetFileAttributesW(path, set);
    });
    const TempFolder folder;
    EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), 0);
    EXPECT_EQ(attributes, 0x2080u) << "not indexed";
    EXPECT_TRUE(access.starts_with("D:P(A;;FA;;;S-1-") && access.ends_with(")(A;;FA;;;SY)(A;;FA;;;BA)")) << access;
    EXPECT_EQ(std::ranges::count(access, '('), 3) << access;
}

TEST(GenerateKeyPair, WritesNoKeyIntoAFileWhoseAccessListCannotBeSet) {
    // With the error of an open that asks for WRITE_DAC, that of the deletion and whether a new file replaces this one.
    const Rows<DWORD, DWORD, bool> rows = {
        {"access denied", ERROR_ACCESS_DENIED, 0, true},
        {"access denied, deletion too", ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED, false},
        {"in use", ERROR_SHARING_VIOLATION, 0, false},
    };
    for (const auto& [name, openError, deletionError, isReplaced] : rows) {
        SCOPED_TRACE(name);
        int writeDacOpens = 0;
        const ImportHook creation("CreateFileW", CreateFileW,
                                  [&writeDacOpens, error = openError](const wchar_t* path, DWORD access, auto... rest) {
                                      if ((access & WRITE_DAC) == 0) return CreateFileW(path, access, rest...);
                                      ++writeDacOpens;
                                      SetLastError(error);
                                      return INVALID_HANDLE_VALUE;
                                  });
        const ImportHook deletion("DeleteFileW", DeleteFileW, [error = deletionError](const wchar_t* path) {
            SetLastError(error);
            return error == 0 ? DeleteFileW(path) : FALSE;
        });
        const TempFolder folder;
        WriteFileBytes(folder / "private.rsakey", "foreign");
        std::filesystem::create_hard_link(folder / "private.rsakey", folder / "same file");
        EXPECT_EQ(ZoSigner_GenerateKeyPair(folder.Path().c_str()), isReplaced ? 0 : kWriteFault);
        EXPECT_EQ(ReadFileBytes(folder / "same file"), "foreign");
        EXPECT_EQ(ReadFileBytes(folder / "private.rsakey").size(), isReplaced ? 1179u : 7u);
        EXPECT_EQ(writeDacOpens, 1);
    }
}

TEST(PrivateKeyFile, LeavesNoKeyInMemoryThatIsFreed) {
    const SealedTree tree;
    const std::string secret = PrivateKey().substr(283);  // behind the public half
    bool isFreed = false;
    int blocks = 0;
    const ImportHook hook("free", std::free, [&](void* block) {
        ++blocks;
        const std::string_view bytes(static_cast<const char*>(block), block == nullptr ? 0 : _msize(block));
        isFreed = isFreed || bytes.find(secret) != std::string_view::npos;
        std::free(block);
    });
    EXPECT_EQ(tree.Sign().status, 0);
    EXPECT_GT(blocks, 0);
    EXPECT_FALSE(isFreed);
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
    const std::string other = half.substr(0, 282) + static_cast<char>(half[282] ^ 2);
    // The bytes of the public file (empty: there is none) and of the private one.
    const Rows<std::string, std::string, std::int32_t, Lines> rows = {
        {"public only", half, "", 0, {summary}},
        {"private only", "", full, 0, {summary}},
        {"neither", "", "", ZOSIG_E_NO_KEY, {none}},
        {"bad public", kJunk, full, ZOSIG_E_NO_KEY, badPublic},
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

// One number of the header replaced.
std::string With(std::string blob, std::size_t field, std::uint32_t value) {
    std::memcpy(&blob[field * 4], &value, 4);
    return blob;
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
    constexpr std::uint32_t kTooShort = 0xC000000D;
    constexpr std::uint32_t kDoesNotFit = 0xC00000BB;
    const std::string full = PrivateKey();
    const std::string half = PublicHalf(full);
    // With the NTSTATUS of the import for verifying and for signing.
    const Rows<std::string, std::uint32_t, std::uint32_t> rows = {
        {"full private", full, 0, 0},
        {"public", half, 0, kDoesNotFit},
        {"less than a public header", half.substr(0, 23), kTooShort, kTooShort},
        {"public header", half.substr(0, 24), kDoesNotFit, kDoesNotFit},
        {"public cut by a byte", half.substr(0, 282), kDoesNotFit, kDoesNotFit},
        {"private cut by a byte", full.substr(0, 1178), kDoesNotFit, kDoesNotFit},
        {"public with a byte behind it", half + "x", kDoesNotFit, kDoesNotFit},
        {"private with a byte behind it", full + "x", kDoesNotFit, kDoesNotFit},
        {"private named RSA2", With(full, 0, 0x32415352), kDoesNotFit, kDoesNotFit},
        {"public of 1024 bits", With(half, 1, 1024), kDoesNotFit, kDoesNotFit},
        {"private of 4096 bits", With(full, 1, 4096), kDoesNotFit, kDoesNotFit},
        {"exponent of no bytes", With(half, 2, 0).erase(24, 3), kDoesNotFit, kDoesNotFit},
        {"exponent of 2^32 - 1 bytes", With(half, 2, 0xFFFFFFFF).substr(0, 279), kDoesNotFit, kDoesNotFit},
        {"sizes that make up for each other", With(With(half, 2, 4), 3, 255), kDoesNotFit, kDoesNotFit},
        {"primes that make up for each other", With(With(full, 4, 126), 5, 131), kDoesNotFit, kDoesNotFit},
        {"modulus of another size", With(half, 3, 255), kDoesNotFit, kDoesNotFit},
        {"second prime of another size", With(full, 5, 127), kDoesNotFit, kDoesNotFit},
        {"first prime of another size", With(full, 4, 126), kDoesNotFit, kDoesNotFit},
    };
    for (const auto& [name, bytes, verifying, signing] : rows) {
        SCOPED_TRACE(name);
        const auto use = [&blob = bytes](auto& options) {
            options.keyBlob = reinterpret_cast<const std::uint8_t*>(blob.data());
            options.keyBlobSize = static_cast<std::uint32_t>(blob.size());
        };
        ExpectImport(tree.Verify(use), verifying);
        ExpectImport(tree.Sign([&use](auto& options) { use(options), options.keystore = nullptr; }), signing);
    }
}

}  // namespace
}  // namespace zotest
