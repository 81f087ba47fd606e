#pragma once

// A manifest as a file: hashed, signed and written; or read, and verified before anything in it is used.

#include <cstdint>
#include <string>

#include "cng.h"
#include "key_store.h"
#include "manifest_text.h"
#include "report.h"

namespace zosigner {

// False when it could not be signed or written; a partly written file is left behind.
[[nodiscard]] bool WriteManifest(const wchar_t* path, const Manifest& manifest, const SigningKey& key,
                                 zo::Hasher& sha256, const Report& report);

// The parsed form points into the bytes of the file.
struct ManifestFile {
    std::string bytes;
    ListedTree tree;
};

[[nodiscard]] std::int32_t ReadManifest(const wchar_t* path, const SigningKey& key, zo::Hasher& sha256,
                                        const Report& report, ManifestFile& manifest);

}  // namespace zosigner
