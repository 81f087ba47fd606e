#pragma once

// The three forms of a path: the platform's long form ("\\?\C:\..."), used to open everything, because it has no length
// limit and keeps trailing dots and blanks; the ordinary form, which messages show; and the relative form of manifests,
// UTF-8 with "/".

#include <string>
#include <string_view>

#include "long_path.h"
#include "report.h"

namespace zosigner {

using zo::LongForm;

// The folder's path and the name with one separator between them.
[[nodiscard]] std::wstring JoinPath(std::wstring_view folder, std::wstring_view name);

// The relative path of an item in a directory of a manifest, whose root is ".".
[[nodiscard]] std::string JoinRelative(std::string_view directory, std::string_view name);

class TreeRoot {
  public:
    // Makes the folder absolute. False when that fails, which is reported.
    [[nodiscard]] bool Resolve(const wchar_t* folder, const Report& report);

    // UTF-8, as resolved.
    [[nodiscard]] const std::string& Shown() const { return shown_; }
    // The ordinary full path of what a relative path names.
    [[nodiscard]] std::string Shown(std::string_view relative) const;
    // The same in long form; "." is the root itself.
    [[nodiscard]] std::wstring Long(std::string_view relative) const;

  private:
    std::string shown_;
    std::wstring long_;
};

}  // namespace zosigner
