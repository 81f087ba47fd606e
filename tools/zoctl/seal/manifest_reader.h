#pragma once

// A manifest as "zoctl manifest" shows it: read without a key and so without believing it. Whether the signature holds
// only "zoctl verify" can say.

#include <cstdint>
#include <string>

#include "manifest_text.h"

namespace zoctl {

struct ManifestListing {
    ManifestListing() = default;
    ManifestListing(const ManifestListing&) = delete;  // the tree points into the bytes
    ManifestListing& operator=(const ManifestListing&) = delete;

    std::string bytes;  // of the file
    zosigner::ListedTree tree;
};

// Takes the bytes apart. Gives the fault, or an empty text when there is none.
[[nodiscard]] std::string ReadListing(ManifestListing& listing);

// The sizes of all files listed; 0 for a manifest that cannot be read.
[[nodiscard]] std::uint64_t ListedBytes(const std::string& manifest);

}  // namespace zoctl
