#pragma once

// Lists a tree in the order of its directory listings, each directory before its contents, and decides which
// directories are sealed. Links of any kind are neither listed nor followed.

#include <cstdint>
#include <vector>

#include "file_identity.h"
#include "io_buffer.h"
#include "manifest_text.h"
#include "report.h"
#include "tree_path.h"
#include "zosigner.h"

namespace zosigner {

// Fills the directories (all sealed, the root first) and the entries; digests and signatures stay empty. False when the
// root cannot be listed; everything else that cannot be read is reported and left out.
[[nodiscard]] bool Walk(const TreeRoot& root, const FileIdentity& manifestFile, const Report& report, IoBuffer& buffer,
                        std::vector<ManifestDirectory>& directories, std::vector<ManifestEntry>& entries);

// Sets the sealed flags, asking the callback where the mode says so. Gives the status that stops the signing.
[[nodiscard]] std::int32_t DecideSeals(std::uint32_t mode, ZoSignerSealCallback callback, void* context,
                                       std::vector<ManifestDirectory>& directories);

}  // namespace zosigner
