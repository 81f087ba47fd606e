#include "key_store.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "cng.h"
#include "errors.h"
#include "files.h"
#include "key_blob.h"
#include "message_beginnings.h"
#include "private_access.h"
#include "tree_path.h"
#include "zosigner.h"

namespace zosigner {

namespace {

constexpr ULONG kKeyBits = 2048;

// Cleared before it is freed, so that no private key stays in memory.
struct KeyBlob : std::vector<std::uint8_t> {
    KeyBlob() = default;
    KeyBlob(const KeyBlob&) = delete;
    KeyBlob& operator=(const KeyBlob&) = delete;
    ~KeyBlob() { SecureZeroMemory(data(), size()); }
};

// A file that cannot be opened or read counts as absent.
bool ReadKeyFile(const std::wstring& path, KeyBlob& blob) {
    std::string bytes;
    if (!zo::ReadWholeFile(path.c_str(), bytes)) return false;
    blob.assign(bytes.begin(), bytes.end());
    SecureZeroMemory(bytes.data(), bytes.size());
    return true;
}

// Gives the Win32 error, 0 when done.
std::uint32_t WriteKey(const zo::OwnedFile& file, const KeyBlob& blob) {
    if (!file) return GetLastError();
    return zo::WriteWhole(file.Get(), {reinterpret_cast<const char*>(blob.data()), blob.size()});
}

zo::OwnedFile CreateKeyFile(const std::wstring& path, DWORD access, DWORD disposition,
                            SECURITY_ATTRIBUTES* attributes = nullptr) {
    return zo::OwnedFile(CreateFileW(path.c_str(), access, 0, attributes, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::uint32_t WritePublicKey(const std::wstring& path, const KeyBlob& blob) {
    return WriteKey(CreateKeyFile(path, GENERIC_WRITE, CREATE_ALWAYS), blob);
}

// The access list is set before the first byte is written, so that others can never read the key, not even if it
// replaces an older file.
std::uint32_t WritePrivateKey(const std::wstring& path, const KeyBlob& blob) {
    PrivateAccess access;
    if (const auto file = CreateKeyFile(path, GENERIC_WRITE | WRITE_DAC, CREATE_ALWAYS, access.ForNewFile())) {
        access.Restrict(file.Get());
        return WriteKey(file, blob);
    }
    const std::uint32_t error = GetLastError();
    if (error != ERROR_ACCESS_DENIED) return error;
    // Others may be able to read a file that keeps its old access list, so the key goes into a new one.
    if (!DeleteFileW(path.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) return error;
    return WriteKey(CreateKeyFile(path, GENERIC_WRITE, CREATE_NEW, access.ForNewFile()), blob);
}

}  // namespace

Keystore::Keystore(const wchar_t* folder)
    : given_(folder),
      privateFile_(LongForm(JoinPath(folder, L"private.rsakey").c_str())),
      publicFile_(LongForm(JoinPath(folder, L"public.rsakey").c_str())) {}

void Keystore::CreateFolder() const {
    zo::CreateDirectories(given_);
}

std::int32_t SigningKey::OpenProvider() {
    if (provider_) return 0;
    return BCryptOpenAlgorithmProvider(provider_.Out(), BCRYPT_RSA_ALGORITHM, nullptr, 0);
}

std::int32_t SigningKey::Import(KeyBlobKind kind, std::span<const std::uint8_t> blob) {
    key_.Reset();
    if (const std::int32_t status = CheckKeyBlob(blob, kind); status < 0) return status;
    if (const std::int32_t status = OpenProvider(); status < 0) return status;
    // CNG does not write to the blob.
    const wchar_t* type = kind == KeyBlobKind::kPublic ? BCRYPT_RSAPUBLIC_BLOB : BCRYPT_RSAFULLPRIVATE_BLOB;
    return BCryptImportKeyPair(provider_.Get(), nullptr, type, key_.Out(), const_cast<PUCHAR>(blob.data()),
                               static_cast<ULONG>(blob.size()), 0);
}

bool SigningKey::LoadForSigning(const Keystore& keystore, const Report& report) {
    KeyBlob blob;
    if (!ReadKeyFile(keystore.PrivateFile(), blob)) return false;
    const std::int32_t status = Import(KeyBlobKind::kFullPrivate, blob);
    if (status < 0) report.Error("ImportPrivateKey -> NTSTATUS 0x{:08X}", zo::Bits(status));
    return status >= 0;
}

bool SigningKey::LoadForVerification(const Keystore& keystore, const Report& report) {
    KeyBlob blob;
    if (ReadKeyFile(keystore.PublicFile(), blob)) {
        const std::int32_t status = Import(KeyBlobKind::kPublic, blob);
        if (status < 0) report.Error("ImportPublicKey -> NTSTATUS 0x{:08X}", zo::Bits(status));
        return status >= 0;
    }
    if (!ReadKeyFile(keystore.PrivateFile(), blob)) return false;
    const std::int32_t status = Import(KeyBlobKind::kFullPrivate, blob);
    if (status < 0) report.Error("ImportPrivateKey(forVerify) -> NTSTATUS 0x{:08X}", zo::Bits(status));
    return status >= 0;
}

std::int32_t SigningKey::Ensure(const Keystore& keystore, const Report& report) {
    if (LoadForSigning(keystore, report)) return zo::kOk;
    report.Info("No private key at '{}', generating fresh pair...", zo::Utf8FromWide(keystore.Given()));
    if (const std::int32_t status = Generate(); status < 0) {
        report.Error("GenerateKeyPair -> NTSTATUS 0x{:08X}", zo::Bits(status));
        return zo::HresultFromNtStatus(status);
    }
    return Save(keystore, report) ? zo::kOk : zo::HresultFromWin32(ERROR_WRITE_FAULT);
}

std::int32_t SigningKey::ImportBlob(std::span<const std::uint8_t> blob, KeyBlobKind kind, const Report& report) {
    if (blob.empty()) {
        report.Error("key blob is empty");
        return zo::kInvalidArgument;
    }
    const std::int32_t status = Import(kind, blob);
    if (status >= 0) return zo::kOk;
    if (kind == KeyBlobKind::kPublic && Import(KeyBlobKind::kFullPrivate, blob) >= 0) return zo::kOk;
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

bool SigningKey::Save(const Keystore& keystore, const Report& report) const {
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
    keystore.CreateFolder();
    if (const std::uint32_t error = WritePrivateKey(keystore.PrivateFile(), privateBlob); error != ERROR_SUCCESS) {
        report.Error("Write private key -> Win32 {}", error);
        return false;
    }
    if (const std::uint32_t error = WritePublicKey(keystore.PublicFile(), publicBlob); error != ERROR_SUCCESS) {
        report.Error("Write public key -> Win32 {}", error);
        return false;
    }
    // Keeps the key out of search indexes; not every file system can, so a failure does not count.
    static_cast<void>(
        SetFileAttributesW(keystore.PrivateFile().c_str(), FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_NORMAL));
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
    return key.Save(zosigner::Keystore(keystore), {}) ? zo::kOk : zo::HresultFromWin32(ERROR_WRITE_FAULT);
}

extern "C" int32_t ZoSigner_GetPublicKeyThumbprint(const wchar_t* keystore, uint8_t thumbprint[32]) {
    if (keystore == nullptr || thumbprint == nullptr) return zo::kInvalidArgument;
    zosigner::SigningKey key;
    if (!key.LoadForVerification(zosigner::Keystore(keystore), {})) return ZOSIG_E_NO_KEY;
    zo::Hasher sha256(BCRYPT_SHA256_ALGORITHM);
    std::ranges::copy(key.PublicThumbprint(sha256), thumbprint);
    return zo::kOk;
}
