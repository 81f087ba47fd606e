#pragma once

// What "zoctl sign --dry-run" signs into: a manifest in the temporary folder, which is read back and deleted.
// Everything but the last step is done in earnest, so a dry run meets every failure but that of writing the manifest.

#include <string>

#include "manifest_reader.h"
#include "temporary_file.h"

namespace zoctl {

class TrialManifest {
  public:
    // Ends the command when the temporary folder cannot be used.
    [[nodiscard]] Ended Create(Output& out);
    [[nodiscard]] const std::wstring& Path() const { return file_.Path(); }

    // What the manifest would list. The manifest that the trial stands in for may lie in the folder itself: it is left
    // out, as it would be when signing.
    [[nodiscard]] Ended Read(Output& out, const std::string& folder, const std::string& manifest,
                             ManifestListing& listing) const;

  private:
    TemporaryFile file_;
};

}  // namespace zoctl
