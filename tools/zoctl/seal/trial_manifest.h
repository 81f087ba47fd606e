#pragma once

// What "zoctl sign --dry-run" signs into: a manifest in the temporary folder, which is read back and deleted.
// Everything but the last step is done in earnest, so a dry run meets every failure but that of writing the manifest.

#include <string>

#include "manifest_reader.h"

namespace zoctl {

class TrialManifest {
  public:
    TrialManifest() = default;
    ~TrialManifest();
    TrialManifest(const TrialManifest&) = delete;
    TrialManifest& operator=(const TrialManifest&) = delete;

    // Ends the command when the temporary folder cannot be used.
    [[nodiscard]] Ended Create(Output& out);
    [[nodiscard]] const std::wstring& Path() const { return path_; }

    // What the manifest would list. The manifest that the trial stands in for may lie in the folder itself: it is left
    // out, as it would be when signing.
    [[nodiscard]] Ended Read(Output& out, const std::string& folder, const std::string& manifest,
                             ManifestListing& listing) const;

  private:
    std::wstring path_;
};

}  // namespace zoctl
