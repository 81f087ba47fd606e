#pragma once

// A signed manifest as "zoctl manifest" shows it: the lists, read without a key and so without believing them. Whether
// the signature holds only "zoctl verify" can say. Pure.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zoctl {

struct ManifestItem {
    std::string kind;  // "sealed folder", "open folder", "file", "shortcut"
    std::uint64_t size = 0;
    std::string digest{};  // files only

    bool operator==(const ManifestItem&) const = default;
};

struct ManifestListing {
    std::string root;
    std::string thumbprint;
    std::uint64_t time = 0;                     // FILETIME
    std::map<std::string, ManifestItem> items;  // by path
};

// False when the text is no manifest.
[[nodiscard]] bool ReadManifestListing(std::string_view text, ManifestListing& listing);

// A FILETIME as "2026-11-24 22:15:03 UTC".
[[nodiscard]] std::string FileTimeText(std::uint64_t time);

}  // namespace zoctl
