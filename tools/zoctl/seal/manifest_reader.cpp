#include "manifest_reader.h"

#include "files.h"
#include "text.h"

namespace zoctl {

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
