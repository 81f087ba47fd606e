#include "bare_signer.h"

// clang-format off
#include <windows.h>
#include <bcrypt.h>
// clang-format on

#include <array>
#include <stdexcept>

#include "owned_handles.h"

namespace zobench {

namespace {

constexpr DWORD kPiece = 65536;
using Digest = std::array<std::uint8_t, 32>;

void Require(bool condition) {
    if (!condition) throw std::runtime_error("a call of the bare program failed");
}

std::string ReadAll(const std::wstring& path) {
    const zo::OwnedFile file(
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size{};
    Require(file && GetFileSizeEx(file.Get(), &size));
    std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    Require(ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr));
    return bytes;
}

PUCHAR Data(std::string& bytes) {
    return reinterpret_cast<PUCHAR>(bytes.data());
}

// Everything that is opened once.
class Bare {
  public:
    Bare(const std::wstring& keyFile, const wchar_t* blobType, double& cryptoSeconds) : crypto_(cryptoSeconds) {
        std::string blob = ReadAll(keyFile);
        const double begin = Seconds();
        Require(BCryptOpenAlgorithmProvider(rsa_.Out(), BCRYPT_RSA_ALGORITHM, nullptr, 0) >= 0);
        Require(BCryptImportKeyPair(rsa_.Get(), nullptr, blobType, key_.Out(), Data(blob),
                                    static_cast<ULONG>(blob.size()), 0) >= 0);
        Require(BCryptOpenAlgorithmProvider(sha_.Out(), BCRYPT_SHA256_ALGORITHM, nullptr, 0) >= 0);
        Require(BCryptCreateHash(sha_.Get(), hash_.Out(), nullptr, 0, nullptr, 0, BCRYPT_HASH_REUSABLE_FLAG) >= 0);
        std::array<UCHAR, 512> exported{};
        ULONG size = 0;
        Require(BCryptExportKey(key_.Get(), nullptr, BCRYPT_RSAPUBLIC_BLOB, exported.data(), 512, &size, 0) >= 0);
        Add(exported.data(), size);
        static_cast<void>(Finish());
        crypto_ += Seconds() - begin;
    }

    void Add(PUCHAR bytes, ULONG size) { Require(BCryptHashData(hash_.Get(), bytes, size, 0) >= 0); }
    Digest Finish() {
        Digest digest{};
        Require(BCryptFinishHash(hash_.Get(), digest.data(), 32, 0) >= 0);
        return digest;
    }

    Digest HashFile(const std::wstring& path) {
        const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                             FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        Require(static_cast<bool>(file));
        for (;;) {
            DWORD read = 0;
            Require(ReadFile(file.Get(), buffer_.data(), kPiece, &read, nullptr));
            const double begin = Seconds();
            if (read == 0) {
                const Digest digest = Finish();
                crypto_ += Seconds() - begin;
                return digest;
            }
            Add(buffer_.data(), read);
            crypto_ += Seconds() - begin;
        }
    }

    Digest HashText(std::string& text) {
        const double begin = Seconds();
        Add(Data(text), static_cast<ULONG>(text.size()));
        const Digest digest = Finish();
        crypto_ += Seconds() - begin;
        return digest;
    }

    std::vector<std::uint8_t> Sign(Digest digest) {
        const double begin = Seconds();
        std::vector<std::uint8_t> signature(256);
        BCRYPT_PKCS1_PADDING_INFO padding{BCRYPT_SHA256_ALGORITHM};
        ULONG size = 0;
        Require(BCryptSignHash(key_.Get(), &padding, digest.data(), 32, signature.data(), 256, &size,
                               BCRYPT_PAD_PKCS1) >= 0);
        crypto_ += Seconds() - begin;
        return signature;
    }

    void Verify(Digest digest, const std::vector<std::uint8_t>& signature) {
        const double begin = Seconds();
        BCRYPT_PKCS1_PADDING_INFO padding{BCRYPT_SHA256_ALGORITHM};
        Require(BCryptVerifySignature(key_.Get(), &padding, digest.data(), 32, const_cast<PUCHAR>(signature.data()),
                                      256, BCRYPT_PAD_PKCS1) >= 0);
        crypto_ += Seconds() - begin;
    }

    void List(const std::wstring& directory) {
        const zo::OwnedFile handle(CreateFileW(directory.c_str(), FILE_LIST_DIRECTORY,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        Require(static_cast<bool>(handle));
        auto kind = FileIdBothDirectoryRestartInfo;
        while (GetFileInformationByHandleEx(handle.Get(), kind, buffer_.data(), kPiece))
            kind = FileIdBothDirectoryInfo;
        Require(GetLastError() == ERROR_NO_MORE_FILES);
    }

  private:
    double& crypto_;
    zo::OwnedAlgorithm rsa_;
    zo::OwnedCryptoKey key_;
    zo::OwnedAlgorithm sha_;
    zo::OwnedHash hash_;
    std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(kPiece);
};

}  // namespace

double Seconds() {
    static const double frequency = [] {
        LARGE_INTEGER value{};
        QueryPerformanceFrequency(&value);
        return static_cast<double>(value.QuadPart);
    }();
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) / frequency;
}

void BareSign(const BenchTree& tree, std::size_t manifestSize, BareSignatures& signatures, double& cryptoSeconds) {
    Bare bare(tree.keystore + L"\\private.rsakey", BCRYPT_RSAFULLPRIVATE_BLOB, cryptoSeconds);
    for (const std::wstring& directory : tree.directories)
        bare.List(directory);
    signatures.ofFiles.clear();
    for (const std::wstring& file : tree.files)
        signatures.ofFiles.push_back(bare.Sign(bare.HashFile(file)));
    signatures.manifest.assign(manifestSize, 'm');
    signatures.ofManifest = bare.Sign(bare.HashText(signatures.manifest));
    const zo::OwnedFile out(
        CreateFileW((tree.manifest + L".bare").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    DWORD written = 0;
    Require(out &&
            WriteFile(out.Get(), signatures.manifest.data(), static_cast<DWORD>(manifestSize), &written, nullptr));
}

void BareVerify(const BenchTree& tree, const BareSignatures& signatures, double& cryptoSeconds) {
    Bare bare(tree.keystore + L"\\public.rsakey", BCRYPT_RSAPUBLIC_BLOB, cryptoSeconds);
    std::string manifest = ReadAll(tree.manifest + L".bare");
    bare.Verify(bare.HashText(manifest), signatures.ofManifest);
    for (std::size_t i = 0; i < tree.files.size(); ++i)
        bare.Verify(bare.HashFile(tree.files[i]), signatures.ofFiles[i]);
    for (const std::wstring& directory : tree.directories)
        bare.List(directory);
}

}  // namespace zobench
