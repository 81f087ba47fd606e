// Sealing a tree: walk, hash and sign each file, write the signed manifest.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "cng.h"
#include "errors.h"
#include "file_hash.h"
#include "file_identity.h"
#include "key_store.h"
#include "manifest_file.h"
#include "message_beginnings.h"
#include "options.h"
#include "report.h"
#include "tree_path.h"
#include "walk.h"
#include "zosigner.h"

static_assert(sizeof(ZoSignerSignOptions) == 72 && offsetof(ZoSignerSignOptions, keyBlob) == 24);
static_assert(offsetof(ZoSignerSignOptions, sealMode) == 36 && offsetof(ZoSignerSignOptions, sealCallback) == 40);
static_assert(offsetof(ZoSignerSignOptions, logCallback) == 56 && offsetof(ZoSignerSignOptions, logContext) == 64);
static_assert(sizeof(ZoSignerSignResult) == 48 && offsetof(ZoSignerSignResult, thumbprint) == 16);

namespace zosigner {

namespace {

std::uint64_t Now() {
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

void WarnSkipped(const Report& report, std::string_view beginning, const std::string& shown, std::int32_t status) {
    report.Warning("{}{}{}{:08X} (skipped)", beginning, shown, kBeforeStatus, zo::Bits(status));
}

// Signs the files; those that cannot be read get no entry.
EntryText SignFiles(const TreeRoot& root, const SigningKey& key, const Report& report, FileHasher hasher,
                    const std::vector<FoundFile>& files) {
    EntryText entries;
    std::size_t size = 0;
    for (const FoundFile& file : files)
        size += EntrySize(file.path, file.isShortcut);
    entries.text.reserve(size);  // growing step by step would need twice the memory

    zo::Sha256Digest digest{};
    std::vector<std::uint8_t> signature;
    for (const FoundFile& file : files) {
        if (file.isShortcut) {
            entries.AddAnchor(file.path);
        } else if (const std::int32_t status = hasher.Hash(root.Long(file.path).c_str(), digest); status < 0) {
            WarnSkipped(report, kHashFailed, root.Shown(file.path), status);
        } else if (const std::int32_t failure = zo::SignDigest(key.Get(), digest, signature); failure < 0) {
            WarnSkipped(report, kSignFailed, root.Shown(file.path), failure);
        } else {
            entries.AddFile(file.path, file.size, digest, signature);
        }
    }
    return entries;
}

ZoSignerSignResult ResultOf(const Manifest& manifest, std::uint32_t sealed) {
    ZoSignerSignResult result{};
    result.entries = result.signedOrAnchored = manifest.entries.files + manifest.entries.anchors;
    result.directories = static_cast<std::uint32_t>(manifest.directories.size());
    result.sealedDirectories = sealed;
    std::ranges::copy(manifest.thumbprint, result.thumbprint);
    return result;
}

std::int32_t Sign(const ZoSignerSignOptions& options, ZoSignerSignResult* result) {
    const Report report(options.logCallback, options.logContext);
    SigningKey key;
    const std::int32_t keyStatus = HasKeyBlob(options)
                                       ? key.ImportBlob(KeyBlobOf(options), KeyBlobKind::kFullPrivate, report)
                                       : key.Ensure(Keystore(options.keystore), report);
    if (keyStatus < 0) return keyStatus;

    TreeRoot root;
    if (!root.Resolve(options.root, report)) return zo::kInvalidArgument;
    Manifest manifest;
    manifest.root = root.Shown();
    zo::Hasher sha256(BCRYPT_SHA256_ALGORITHM);
    manifest.thumbprint = key.PublicThumbprint(sha256);
    manifest.time = Now();

    report.Info("Walking '{}' ...", root.Shown());
    IoBuffer buffer;
    const FileIdentity manifestFile(options.manifest);
    std::vector<FoundFile> files;
    if (!Walk(root, manifestFile, report, buffer, manifest.directories, files)) return zo::kFail;
    if (const std::int32_t status =
            DecideSeals(options.sealMode, options.sealCallback, options.sealContext, manifest.directories);
        status < 0) {
        return status;
    }
    const auto sealed =
        static_cast<std::uint32_t>(std::ranges::count(manifest.directories, true, &ManifestDirectory::sealed));
    report.Info("{}{} files, {} directories ({} sealed). Signing...", kFilesFound, files.size(),
                manifest.directories.size(), sealed);

    manifest.entries = SignFiles(root, key, report, FileHasher(sha256, buffer), files);
    if (!WriteManifest(options.manifest, manifest, key, sha256, report)) return zo::kFail;
    report.Info("Signed {} files, anchored {} shortcut(s) -> {}", manifest.entries.files, manifest.entries.anchors,
                zo::Utf8FromWide(options.manifest));

    if (result != nullptr) *result = ResultOf(manifest, sealed);
    return zo::kOk;
}

}  // namespace

}  // namespace zosigner

extern "C" int32_t ZoSigner_SignDirectory(const ZoSignerSignOptions* options, ZoSignerSignResult* result) {
    if (!zosigner::HasPaths(options) || !zosigner::HasKey(*options)) return zo::kInvalidArgument;
    if (result != nullptr) *result = {};
    return zosigner::Sign(*options, result);
}
