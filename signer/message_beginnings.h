#pragma once

// The beginnings of the messages that report single findings. Callers have no other channel for findings: zoctl
// recognises them by these texts, and zosigner.h lists them, so they never change. A full path follows, except where
// noted. Pure.

#include <string_view>

namespace zosigner {

// Verifying.
inline constexpr std::string_view kMissingShortcut = "[MISS] shortcut anchor: ";
inline constexpr std::string_view kMissingFile = "[MISS] ";  // also begins kMissingShortcut: compare that one first
inline constexpr std::string_view kHashMismatch = "[BAD ] hash mismatch: ";
inline constexpr std::string_view kInvalidSignature = "[BAD ] signature invalid: ";
inline constexpr std::string_view kExtraLink = "[XTRA] new mklink (reparse point) created in sealed dir: ";
inline constexpr std::string_view kExtraFolder = "[XTRA] unexpected dir  in sealed dir: ";
inline constexpr std::string_view kExtraFile = "[XTRA] unexpected file in sealed dir: ";
inline constexpr std::string_view kUnseenFolder = "cannot list sealed dir '";

// Signing.
inline constexpr std::string_view kSkippedLink = "skipping reparse point: ";
inline constexpr std::string_view kHashFailed = "hash '";
inline constexpr std::string_view kSignFailed = "sign '";
inline constexpr std::string_view kControlCharacterName = "name with control characters: ";
inline constexpr std::string_view kNotUtf16Name = "name that is not valid UTF-16: ";
inline constexpr std::string_view kListingFailed = "iter: ";  // the error's text follows, no path
inline constexpr std::string_view kFilesFound = "Found ";     // the number of files follows

// Signing, before it fails: of the system's errors, a text after the folder's path and kBeforeErrorText, or a number.
inline constexpr std::string_view kRootNotListed = "open root '";
inline constexpr std::string_view kManifestNotCreated = "Create manifest -> Win32 ";
inline constexpr std::string_view kManifestNotWritten = "Write manifest -> Win32 ";

// Either, before anything else: the key blob is not a key of the kind needed.
inline constexpr std::string_view kKeyImportFailed = "ImportKeyBlob ";

// What follows the path of kUnseenFolder and kRootNotListed; of kInvalidSignature; of kHashFailed and kSignFailed.
inline constexpr std::string_view kBeforeErrorText = "': ";
inline constexpr std::string_view kBeforeSignatureStatus = " (0x";
inline constexpr std::string_view kBeforeStatus = "' -> 0x";

}  // namespace zosigner
