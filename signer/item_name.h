#pragma once

// What the name of a file or folder says by itself: whether a manifest can list it, and whether it is a shortcut.

#include <string_view>

namespace zosigner {

enum class NameFault {
    kNone,
    kControlCharacter,  // would break out of its line in the manifest
    kNotUtf16,          // an unpaired surrogate, which UTF-8 cannot express: the text would stand for another name
};

// Names with a fault are left out of manifests, so an item with one is never a listed item.
[[nodiscard]] NameFault FaultOf(std::wstring_view name);

// The extension is what follows the last dot, unless the name begins there; ".lnk" in any letter case is a shortcut's.
[[nodiscard]] bool IsShortcut(std::wstring_view name);

}  // namespace zosigner
