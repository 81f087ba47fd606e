#pragma once

// A manifest as "zoctl manifest" shows it: read without a key and so without believing it. Whether the signature holds
// only "zoctl verify" can say.

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "manifest_text.h"
#include "output.h"

namespace zoctl {

struct ManifestListing {
    ManifestListing() = default;
    ~ManifestListing() = default;
    ManifestListing(const ManifestListing&) = delete;  // the tree points into the bytes
    ManifestListing& operator=(const ManifestListing&) = delete;

    std::string bytes;  // of the file
    zosigner::ListedTree tree;
};

// One line of a manifest, comparable as a whole. The path comes first: equal ones are neighbours when sorted.
struct ManifestItem {
    std::string_view path;
    std::string_view kind;  // "file", "shortcut", "sealed folder", "open folder"
    std::uint64_t size = 0;
    std::string_view digest{};

    auto operator<=>(const ManifestItem&) const = default;

    [[nodiscard]] bool IsFile() const { return kind == "file"; }
    [[nodiscard]] Json ToJson() const;
};

[[nodiscard]] std::vector<ManifestItem> SortedItems(const zosigner::ListedTree& tree);

// Takes the bytes apart. Gives the fault, or an empty text when there is none.
[[nodiscard]] std::string ReadListing(ManifestListing& listing);

// The sizes of all files listed; 0 for a manifest that cannot be read.
[[nodiscard]] std::uint64_t ListedBytes(const std::string& manifest);

}  // namespace zoctl
