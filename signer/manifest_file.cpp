#include "manifest_file.h"

#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "cng.h"
#include "errors.h"
#include "files.h"
#include "message_beginnings.h"
#include "owned_handles.h"
#include "tree_path.h"

namespace zosigner {

namespace {

// The digest that the whole-file signature covers. The pieces are hashed in place: joining them would double the
// memory needed. Gives an NTSTATUS.
std::int32_t HashSignedText(zo::Hasher& sha256, std::initializer_list<std::string_view> pieces,
                            zo::Sha256Digest& digest) {
    for (const std::string_view piece : pieces) {
        if (const std::int32_t status = sha256.Update(piece.data(), piece.size()); status < 0) return status;
    }
    return sha256.Finish(digest);
}

std::int32_t BadManifest(const Report& report, const std::string& fault) {
    report.Error("{}", fault);
    return ZOSIG_E_BAD_MANIFEST;
}

std::int32_t ReadBytes(const wchar_t* path, const Report& report, std::string& bytes) {
    const zo::FileReadResult read = zo::ReadWholeFile(path, bytes);
    if (read) return zo::kOk;
    if (read.failedAt == zo::FileReadResult::Step::kOpen) {
        report.Error("Open manifest -> Win32 {}", read.error);
    } else {
        report.Error("Read manifest -> Win32 {}", read.error);
    }
    return zo::HresultFromWin32(read.error);
}

}  // namespace

bool WriteManifest(const wchar_t* path, const Manifest& manifest, const SigningKey& key, zo::Hasher& sha256,
                   const Report& report) {
    const std::string head = BuildHead(manifest);
    const std::string_view entries = manifest.entries.text;
    zo::Sha256Digest digest{};
    if (const std::int32_t status = HashSignedText(sha256, {kMagicLine, head, entries}, digest); status < 0) {
        report.Error("hash manifest -> 0x{:08X}", zo::Bits(status));
        return false;
    }
    std::vector<std::uint8_t> signature;
    if (const std::int32_t status = zo::SignDigest(key.Get(), digest, signature); status < 0) {
        report.Error("sign manifest -> 0x{:08X}", zo::Bits(status));
        return false;
    }

    zo::CreateDirectories(std::filesystem::path(path).parent_path());
    const zo::OwnedFile file(
        CreateFileW(LongForm(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        report.Error("{}{}", kManifestNotCreated, GetLastError());
        return false;
    }
    const std::string signatureLine = SignatureLine(signature);
    for (const std::string_view piece :
         {kMagicLine, std::string_view(signatureLine), std::string_view(head), entries}) {
        if (const std::uint32_t error = zo::WriteWhole(file.Get(), piece); error != ERROR_SUCCESS) {
            report.Error("{}{}", kManifestNotWritten, error);
            return false;
        }
    }
    return true;
}

std::int32_t ReadManifest(const wchar_t* path, const SigningKey& key, zo::Hasher& sha256, const Report& report,
                          ManifestFile& manifest) {
    if (const std::int32_t status = ReadBytes(path, report, manifest.bytes); status < 0) return status;

    SignedText parts;
    if (const std::string fault = SplitSignedText(manifest.bytes, parts); !fault.empty()) {
        return BadManifest(report, fault);
    }
    zo::Sha256Digest digest{};
    if (const std::int32_t status = HashSignedText(sha256, {parts.magicLine, parts.body}, digest); status < 0) {
        report.Error("hash manifest for verify -> 0x{:08X}", zo::Bits(status));
        return zo::HresultFromNtStatus(status);
    }
    if (const std::int32_t status = zo::VerifyDigest(key.Get(), digest, parts.signature); status < 0) {
        report.Error("manifest body has been tampered with (MSIG verify -> 0x{:08X})", zo::Bits(status));
        return ZOSIG_E_TAMPERED;
    }
    if (const std::string fault = ParseBody(parts.body, manifest.tree); !fault.empty()) {
        return BadManifest(report, fault);
    }
    return zo::kOk;
}

}  // namespace zosigner
