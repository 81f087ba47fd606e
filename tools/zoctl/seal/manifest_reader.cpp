#include "manifest_reader.h"

#include <algorithm>

#include "files.h"
#include "text.h"

namespace zoctl {

Json ManifestItem::ToJson() const {
    Json json = {{"kind", kind}, {"path", path}};
    if (IsFile()) json.update({{"size", size}, {"digest", digest}});
    return json;
}

std::vector<ManifestItem> SortedItems(const zosigner::ListedTree& tree) {
    std::vector<ManifestItem> items;
    for (const zosigner::ListedDirectory& directory : tree.directories)
        items.push_back({directory.path, directory.sealed ? "sealed folder" : "open folder"});
    for (const zosigner::ListedEntry& entry : tree.entries) {
        if (entry.anchor) {
            items.push_back({entry.path, "shortcut"});
        } else {
            items.push_back({entry.path, "file", entry.size, entry.digest});
        }
    }
    std::sort(items.begin(), items.end());
    return items;
}

std::string ReadListing(ManifestListing& listing) {
    zosigner::SignedText parts;
    std::string fault = zosigner::SplitSignedText(listing.bytes, parts);
    return fault.empty() ? zosigner::ParseBody(parts.body, listing.tree) : fault;
}

std::uint64_t ListedBytes(const std::string& manifest) {
    ManifestListing listing;
    if (!zo::ReadWholeFile(zo::WideFromUtf8(manifest).c_str(), listing.bytes) || !ReadListing(listing).empty()) {
        return 0;
    }
    std::uint64_t bytes = 0;
    for (const zosigner::ListedEntry& entry : listing.tree.entries)
        bytes += entry.size;
    return bytes;
}

}  // namespace zoctl
