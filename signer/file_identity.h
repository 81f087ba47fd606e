#pragma once

// Whether an item of a directory listing is one particular file, whatever its spelling: how the manifest is recognised
// inside the tree.

#include <cstdint>
#include <string>
#include <string_view>

#include "directory_listing.h"

namespace zosigner {

// Two paths name the same file when volume and 128-bit file id are the same. Where the volume has no ids, the full
// paths decide, ignoring case.
class FileIdentity {
  public:
    // The file need not exist. Its size and creation time are taken here, its id when an item may be it.
    explicit FileIdentity(const wchar_t* path);

    // Whether the listed item can be this file. Nearly all items are ruled out by their listing, because asking the
    // platform for an id takes longer than hashing a small file. Is decides about the rest.
    [[nodiscard]] bool MayBe(const DirectoryItem& item) const;

    // path: the item's, in long form. A link is the file only when its own path is the one given, because links from
    // anywhere can lead to the file.
    [[nodiscard]] bool Is(const std::wstring& path, const DirectoryItem& item) const;

  private:
    std::wstring path_;  // long form
    std::wstring_view name_;
    bool exists_ = false;
    std::uint64_t size_ = 0;
    std::uint64_t created_ = 0;  // FILETIME
};

}  // namespace zosigner
