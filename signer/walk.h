#pragma once

// Lists a tree in the order of its directory listings, each directory before its contents, and decides which
// directories are sealed. Links of any kind are neither listed nor followed.

#include <cstdint>
#include <string>
#include <vector>

#include "file_identity.h"
#include "io_buffer.h"
#include "manifest_text.h"
#include "report.h"
#include "tree_path.h"
#include "zosigner.h"

namespace zosigner {

struct FoundFile {
    std::string path;  // UTF-8, relative to the root, separated by "/"
    std::uint64_t size = 0;
    bool isShortcut = false;
};

// Fills the directories (all sealed, the root first) and the files. False when the root cannot be listed; everything
// else that cannot be read is reported and left out.
[[nodiscard]] bool Walk(const TreeRoot& root, const FileIdentity& manifestFile, const Report& report, IoBuffer& buffer,
                        std::vector<ManifestDirectory>& directories, std::vector<FoundFile>& files);

// Sets the sealed flags, asking the callback where the mode says so. Gives the status that stops the signing.
[[nodiscard]] std::int32_t DecideSeals(std::uint32_t mode, ZoSignerSealCallback callback, void* context,
                                       std::vector<ManifestDirectory>& directories);

}  // namespace zosigner
