#include "key_store.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "cng.h"
#include "errors.h"
#include "files.h"
#include "message_beginnings.h"
#include "private_access.h"
#include "tree_path.h"
#include "zosigner.h"

namespace zosigner {

namespace {

constexpr std::wstring_view kPrivateName = L"private.rsakey";
constexpr std::wstring_view kPublicName = L"public.rsakey";
constexpr ULONG kKeyBits = 2048;

// A private key is not left behind in freed memory.
struct KeyBlob : std::vector<std::uint8_t> {
    KeyBlob() = default;
    KeyBlob(const KeyBlob&) = delete;
    KeyBlob& operator=(const KeyBlob&) = delete;
    ~KeyBlob() { SecureZeroMemory(data(), size()); }
};

// A file that cannot be opened or read counts as absent.
bool ReadKeyFile(const wchar_t* keystore, std::wstring_view name, KeyBlob& blob) {
    std::string bytes;
    if (!zo::ReadWholeFile(LongForm(JoinPath(keystore, name).c_str()).c_str(), bytes)) return false;
    blob.assign(bytes.begin(), bytes.end());
    SecureZeroMemory(bytes.data(), bytes.size());
    return true;
}

// Replaces the file. Gives the Win32 error, 0 when done.
std::uint32_t WriteKeyFile(const wchar_t* keystore, std::wstring_view name, const KeyBlob& blob, bool isPrivate) {
    const std::wstring path = JoinPath(keystore, name);
    zo::CreateDirectories(std::filesystem::path(path).parent_path());
    const std::wstring longPath = LongForm(path.c_str());
    const auto create = [&longPath](DWORD access) {
        return CreateFileW(longPath.c_str(), access, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    };
    zo::OwnedFile file;
    if (isPrivate) file.Reset(create(GENERIC_WRITE | WRITE_DAC));
    if (file) {
        // Before the first byte: the key is at no time readable by others, not even where it replaces a file that was.
        RestrictAccess(file.Get());
    } else {
        // Whoever may replace another's file, but not its access list, replaces it all the same.
        file.Reset(create(GENERIC_WRITE));
    }
    if (!file) return GetLastError();
    return zo::WriteWhole(file.Get(), {reinterpret_cast<const char*>(blob.data()), blob.size()});
}

}  // namespace

std::int32_t SigningKey::OpenProvider() {
    if (provider_) return 0;
    return BCryptOpenAlgorithmProvider(provider_.Out(), BCRYPT_RSA_ALGORITHM, nullptr, 0);
}

std::int32_t SigningKey::Import(const wchar_t* blobType, std::span<const std::uint8_t> blob) {
    if (const std::int32_t status = OpenProvider(); status < 0) return status;
    // CNG does not write to the blob.
    return BCryptImportKeyPair(provider_.Get(), nullptr, blobType, key_.Out(), const_cast<PUCHAR>(blob.data()),
                               static_cast<ULONG>(blob.size()), 0);
}

bool SigningKey::LoadForSigning(const wchar_t* keystore, const Report& report) {
    KeyBlob blob;
    if (!ReadKeyFile(keystore, kPrivateName, blob)) return false;
    const std::int32_t status = Import(BCRYPT_RSAFULLPRIVATE_BLOB, blob);
    if (status < 0) report.Error("ImportPrivateKey -> NTSTATUS 0x{:08X}", zo::Bits(status));
    return status >= 0;
}

bool SigningKey::LoadForVerification(const wchar_t* keystore, const Report& report) {
    KeyBlob blob;
    if (ReadKeyFile(keystore, kPublicName, blob)) {
        const std::int32_t status = Import(BCRYPT_RSAPUBLIC_BLOB, blob);
        if (status < 0) report.Error("ImportPublicKey -> NTSTATUS 0x{:08X}", zo::Bits(status));
        return status >= 0;
    }
    if (!ReadKeyFile(keystore, kPrivateName, blob)) return false;
    const std::int32_t status = Import(BCRYPT_RSAFULLPRIVATE_BLOB, blob);
    if (status < 0) report.Error("ImportPrivateKey(forVerify) -> NTSTATUS 0x{:08X}", zo::Bits(status));
    return status >= 0;
}

std::int32_t SigningKey::Ensure(const wchar_t* keystore, const Report& report) {
    if (LoadForSigning(keystore, report)) return zo::kOk;
    report.Info("No private key at '{}', generating fresh pair...", zo::Utf8FromWide(keystore));
    if (const std::int32_t status = Generate(); status < 0) {
        report.Error("GenerateKeyPair -> NTSTATUS 0x{:08X}", zo::Bits(status));
        return zo::HresultFromNtStatus(status);
    }
    return Save(keystore, report) ? zo::kOk : zo::HresultFromWin32(ERROR_WRITE_FAULT);
}

std::int32_t SigningKey::ImportBlob(std::span<const std::uint8_t> blob, bool isPrivate, const Report& report) {
    if (blob.empty()) {
        report.Error("key blob is empty");
        return zo::kInvalidArgument;
    }
    const std::int32_t status = Import(isPrivate ? BCRYPT_RSAFULLPRIVATE_BLOB : BCRYPT_RSAPUBLIC_BLOB, blob);
    if (status >= 0) return zo::kOk;
    if (!isPrivate && Import(BCRYPT_RSAFULLPRIVATE_BLOB, blob) >= 0) return zo::kOk;
    report.Error("{}-> NTSTATUS 0x{:08X}", kKeyImportFailed, zo::Bits(status));
    return zo::HresultFromNtStatus(status);
}

std::int32_t SigningKey::Generate() {
    if (const std::int32_t status = OpenProvider(); status < 0) return status;
    if (const std::int32_t status = BCryptGenerateKeyPair(provider_.Get(), key_.Out(), kKeyBits, 0); status < 0) {
        return status;
    }
    return BCryptFinalizeKeyPair(key_.Get(), 0);
}

bool SigningKey::Save(const wchar_t* keystore, const Report& report) const {
    KeyBlob privateBlob;
    if (const std::int32_t status = zo::ExportKey(key_.Get(), BCRYPT_RSAFULLPRIVATE_BLOB, privateBlob); status < 0) {
        report.Error("ExportPrivate -> NTSTATUS 0x{:08X}", zo::Bits(status));
        return false;
    }
    KeyBlob publicBlob;
    if (const std::int32_t status = zo::ExportKey(key_.Get(), BCRYPT_RSAPUBLIC_BLOB, publicBlob); status < 0) {
        report.Error("ExportPublic -> NTSTATUS 0x{:08X}", zo::Bits(status));
        return false;
    }
    if (const std::uint32_t error = WriteKeyFile(keystore, kPrivateName, privateBlob, true); error != ERROR_SUCCESS) {
        report.Error("Write private key -> Win32 {}", error);
        return false;
    }
    if (const std::uint32_t error = WriteKeyFile(keystore, kPublicName, publicBlob, false); error != ERROR_SUCCESS) {
        report.Error("Write public key -> Win32 {}", error);
        return false;
    }
    // Keeps the key out of search indexes; a file system that cannot say so is no failure.
    static_cast<void>(SetFileAttributesW(LongForm(JoinPath(keystore, kPrivateName).c_str()).c_str(),
                                         FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_NORMAL));
    return true;
}

Thumbprint SigningKey::PublicThumbprint(zo::Hasher& sha256) const {
    Thumbprint thumbprint{};
    KeyBlob blob;
    if (zo::ExportKey(key_.Get(), BCRYPT_RSAPUBLIC_BLOB, blob) < 0) return thumbprint;
    if (sha256.Update(blob.data(), blob.size()) < 0 || sha256.Finish(thumbprint) < 0) thumbprint = {};
    return thumbprint;
}

}  // namespace zosigner

extern "C" int32_t ZoSigner_GenerateKeyPair(const wchar_t* keystore) {
    if (keystore == nullptr || keystore[0] == L'\0') return zo::kInvalidArgument;
    zosigner::SigningKey key;
    if (const std::int32_t status = key.Generate(); status < 0) return zo::HresultFromNtStatus(status);
    return key.Save(keystore, {}) ? zo::kOk : zo::HresultFromWin32(ERROR_WRITE_FAULT);
}

extern "C" int32_t ZoSigner_GetPublicKeyThumbprint(const wchar_t* keystore, uint8_t thumbprint[32]) {
    if (keystore == nullptr || thumbprint == nullptr) return zo::kInvalidArgument;
    zosigner::SigningKey key;
    if (!key.LoadForVerification(keystore, {})) return ZOSIG_E_NO_KEY;
    zo::Hasher sha256(BCRYPT_SHA256_ALGORITHM);
    std::ranges::copy(key.PublicThumbprint(sha256), thumbprint);
    return zo::kOk;
}
