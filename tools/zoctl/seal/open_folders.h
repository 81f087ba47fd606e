#pragma once

// The folders that "zoctl sign --open" names, with all below them: found in the tree before anything is signed, so that
// a name that is misspelt does not seal what was to stay open.

#include <cstdint>
#include <string>
#include <vector>

namespace zoctl {

class OpenFolders {
  public:
    // A name may be relative to the tree's root or absolute, with either separator and in any letter case. False when
    // it names no folder of the tree, or a link, which is never sealed.
    [[nodiscard]] bool Add(const std::wstring& root, const std::wstring& name);

    [[nodiscard]] bool Empty() const { return folders_.empty(); }
    // Relative to the root, with "/"; the root itself is ".".
    [[nodiscard]] std::vector<std::string> Names() const;
    // Those that the library did not come by, as what lies behind a link.
    [[nodiscard]] std::vector<std::string> NotAsked() const;

    // Whether the item, whose full path the library reported, is in one of the folders.
    [[nodiscard]] bool HoldsItem(const std::string& path) const;

    // For ZoSignerSealCallback; the context is the folders.
    static std::int32_t Ask(void* context, const wchar_t* path, std::int32_t* seal, std::int32_t* applyToRest);

  private:
    struct Folder {
        std::wstring path;
        bool asked = false;

        [[nodiscard]] bool Holds(const std::wstring& other) const;
    };

    std::wstring root_;  // absolute, without a separator at its end
    std::vector<Folder> folders_;
};

}  // namespace zoctl
