// Checking a tree against its manifest: every listed file's digest and signature, every anchor's presence, and nothing
// unlisted in a sealed directory.

#include <algorithm>
#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "cng.h"
#include "directory_listing.h"
#include "embedded_key.h"
#include "error_text.h"
#include "errors.h"
#include "file_hash.h"
#include "file_identity.h"
#include "hex.h"
#include "item_name.h"
#include "key_store.h"
#include "manifest_file.h"
#include "message_beginnings.h"
#include "options.h"
#include "report.h"
#include "tree_path.h"
#include "zosigner.h"

static_assert(sizeof(ZoSignerVerifyOptions) == 56 && offsetof(ZoSignerVerifyOptions, keyBlob) == 24);
static_assert(offsetof(ZoSignerVerifyOptions, logCallback) == 40 && offsetof(ZoSignerVerifyOptions, logContext) == 48);
static_assert(sizeof(ZoSignerVerifyResult) == 52 && offsetof(ZoSignerVerifyResult, thumbprint) == 20);

namespace zosigner {

namespace {

std::int32_t LoadKey(const ZoSignerVerifyOptions& options, const Report& report, SigningKey& key) {
    if (HasKeyBlob(options)) return key.ImportBlob(KeyBlobOf(options), KeyBlobKind::kPublic, report);
    if (key.LoadForVerification(Keystore(options.keystore), report)) return zo::kOk;
    report.Error("cannot load public key from '{}'", zo::Utf8FromWide(options.keystore));
    return ZOSIG_E_NO_KEY;
}

class Verifier {
  public:
    Verifier(const TreeRoot& root, const ListedTree& tree, const FileIdentity& manifestFile, const SigningKey& key,
             zo::Hasher& sha256, const Report& report)
        : root_(root), tree_(tree), manifestFile_(manifestFile), key_(key), report_(report), hasher_(sha256, buffer_) {}

    // Fills all of the result but the thumbprint. Gives the Win32 error of the first sealed directory that could not be
    // listed to its end, 0 when all were.
    [[nodiscard]] std::uint32_t Run(ZoSignerVerifyResult& result) {
        for (const ListedEntry& entry : tree_.entries) {
            ++(result.*(entry.anchor ? CheckAnchor(entry) : CheckFile(entry)));
        }
        CollectListed();
        for (const ListedDirectory& directory : tree_.directories) {
            if (directory.sealed) result.extra += CountExtra(directory.path);
        }
        result.directories = static_cast<std::uint32_t>(tree_.directories.size());
        return unseenError_;
    }

  private:
    using Counter = std::uint32_t ZoSignerVerifyResult::*;

    [[nodiscard]] Counter CheckAnchor(const ListedEntry& entry) const {
        const DWORD attributes = GetFileAttributesW(root_.Long(entry.path).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            return &ZoSignerVerifyResult::ok;
        }
        report_.Warning("{}{}", kMissingShortcut, root_.Shown(entry.path));
        return &ZoSignerVerifyResult::missing;
    }

    [[nodiscard]] Counter CheckFile(const ListedEntry& entry) {
        zo::Sha256Digest digest{};
        if (hasher_.Hash(root_.Long(entry.path).c_str(), digest) < 0) {
            report_.Warning("{}{}", kMissingFile, root_.Shown(entry.path));
            return &ZoSignerVerifyResult::missing;
        }
        // Without a digest, the entry counts as having one of all zeros, which no file has.
        zo::Sha256Digest listed{};
        if (!zo::DecodeHexExactly(entry.digest, listed) || digest != listed) {
            report_.Error("{}{}", kHashMismatch, root_.Shown(entry.path));
            return &ZoSignerVerifyResult::bad;
        }
        // Cannot fail: the reader has checked the digits. An empty signature does not verify.
        static_cast<void>(zo::DecodeHex(entry.signature, signature_));
        if (const std::int32_t status = zo::VerifyDigest(key_.Get(), digest, signature_); status < 0) {
            report_.Error("{}{}{}{:08X})", kInvalidSignature, root_.Shown(entry.path), kBeforeSignatureStatus,
                          zo::Bits(status));
            return &ZoSignerVerifyResult::bad;
        }
        return &ZoSignerVerifyResult::ok;
    }

    // Names are compared byte for byte: a file in another letter case is not the listed one.
    void CollectListed() {
        listed_.reserve(tree_.entries.size() + tree_.directories.size());
        for (const ListedEntry& entry : tree_.entries)
            listed_.insert(entry.path);
        for (const ListedDirectory& directory : tree_.directories) {
            if (directory.path != kRootDirectory) listed_.insert(directory.path);
        }
    }

    [[nodiscard]] std::uint32_t CountExtra(std::string_view directory) {
        const std::wstring path = root_.Long(directory);
        std::uint32_t extra = 0;
        std::uint32_t error = listing_.Open(path.c_str(), true);
        if (error == ERROR_SUCCESS) {
            DirectoryItem item;
            while (listing_.Next(item)) {
                const std::string relative = JoinRelative(directory, zo::Utf8FromWide(item.name));
                if (IsListed(item.name, relative)) continue;
                if (manifestFile_.MayBe(item) && manifestFile_.Is(JoinPath(path, item.name), item)) continue;
                ReportExtra(item, root_.Shown(relative));
                ++extra;
            }
            error = listing_.Error();
        }
        if (error != ERROR_SUCCESS && !HasVanished(path, error)) ReportUnseen(directory, error);
        return extra;
    }

    // A name that no manifest can list may look like a listed one once it is converted.
    [[nodiscard]] bool IsListed(std::wstring_view name, const std::string& relative) const {
        return listed_.contains(relative) && FaultOf(name) == NameFault::kNone;
    }

    // A directory that is not there has no unexpected items; what was listed in it counts as missing already.
    [[nodiscard]] static bool HasVanished(const std::wstring& path, std::uint32_t error) {
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return true;
        const DWORD attributes = GetFileAttributesW(path.c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    }

    // What could not be seen may hold anything, so it must not pass as sealed.
    void ReportUnseen(std::string_view directory, std::uint32_t error) {
        const std::string shown = directory == kRootDirectory ? root_.Shown() : root_.Shown(directory);
        report_.Error("{}{}{}{}", kUnseenFolder, shown, kBeforeErrorText, zo::ErrorText(error));
        if (unseenError_ == ERROR_SUCCESS) unseenError_ = error;
    }

    void ReportExtra(const DirectoryItem& item, const std::string& shown) const {
        const std::string_view beginning = item.IsReparsePoint() ? kExtraLink
                                           : item.IsDirectory()  ? kExtraFolder
                                                                 : kExtraFile;
        report_.Error("{}{}", beginning, shown);
    }

    const TreeRoot& root_;
    const ListedTree& tree_;
    const FileIdentity& manifestFile_;
    const SigningKey& key_;
    const Report& report_;
    IoBuffer buffer_;
    FileHasher hasher_;
    DirectoryListing listing_{buffer_};
    std::vector<std::uint8_t> signature_;
    std::unordered_set<std::string_view> listed_;
    std::uint32_t unseenError_ = ERROR_SUCCESS;
};

bool ThumbprintsMatch(const Thumbprint& ofManifest, const Thumbprint& ofKey, const Report& report) {
    if (ofManifest == ofKey) return true;
    report.Error("public-key thumbprint mismatch");
    report.Error("  manifest : {}", zo::ToHex(ofManifest));
    report.Error("  keystore : {}", zo::ToHex(ofKey));
    return false;
}

std::int32_t Verify(const ZoSignerVerifyOptions& options, ZoSignerVerifyResult* result) {
    if (!HasKey(options)) return zo::kInvalidArgument;
    ZoSignerVerifyResult unused;
    ZoSignerVerifyResult& filled = result != nullptr ? *result : unused;
    filled = {};

    const Report report(options.logCallback, options.logContext);
    SigningKey key;
    if (const std::int32_t status = LoadKey(options, report, key); status < 0) return status;
    zo::Hasher sha256(BCRYPT_SHA256_ALGORITHM);
    ManifestFile manifest;
    if (const std::int32_t status = ReadManifest(options.manifest, key, sha256, report, manifest); status < 0) {
        return status;
    }

    const Thumbprint thumbprint = key.PublicThumbprint(sha256);
    std::ranges::copy(thumbprint, filled.thumbprint);
    if (!ThumbprintsMatch(manifest.tree.thumbprint, thumbprint, report)) return ZOSIG_E_THUMBPRINT_MISMATCH;

    // The caller's root, not the manifest's: a sealed tree can be moved.
    TreeRoot root;
    if (!root.Resolve(options.root, report)) return zo::kInvalidArgument;
    const FileIdentity manifestFile(options.manifest);
    const std::uint32_t unseenError = Verifier(root, manifest.tree, manifestFile, key, sha256, report).Run(filled);
    report.Info("Verify summary: ok={}, bad={}, missing={}, extra={}, dirs={}", filled.ok, filled.bad, filled.missing,
                filled.extra, filled.directories);
    if (unseenError != ERROR_SUCCESS) return zo::HresultFromWin32(unseenError);
    const bool clean = filled.bad == 0 && filled.missing == 0 && filled.extra == 0;
    return clean ? zo::kOk : ZOSIG_E_VERIFY_FAILED;
}

}  // namespace

}  // namespace zosigner

extern "C" int32_t ZoSigner_VerifyDirectory(const ZoSignerVerifyOptions* options, ZoSignerVerifyResult* result) {
    if (!zosigner::HasPaths(options)) return zo::kInvalidArgument;
    return zosigner::Verify(*options, result);
}

extern "C" int32_t ZoSigner_VerifyDirectoryWithEmbeddedKey(const ZoSignerVerifyOptions* options,
                                                           ZoSignerVerifyResult* result) {
    if (!zosigner::HasPaths(options)) return zo::kInvalidArgument;
    ZoSignerVerifyOptions embedded = *options;
    embedded.keystore = nullptr;
    const auto key = zosigner::EmbeddedPublicKey();
    embedded.keyBlob = key.data();
    embedded.keyBlobSize = static_cast<std::uint32_t>(key.size());
    return zosigner::Verify(embedded, result);
}
