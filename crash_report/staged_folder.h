#pragma once

// A private copy of a dump folder that denies access, made by the driver below the temporary folder.

#include <cstdint>
#include <string>

#include "held_folder.h"
#include "reporter_context.h"

namespace zocrash {

class StagedFolder {
  public:
    StagedFolder() = default;
    StagedFolder(const StagedFolder&) = delete;
    StagedFolder& operator=(const StagedFolder&) = delete;
    // Copied dumps are not left behind when a run ends by an exception.
    ~StagedFolder();

    // Has the driver copy `source`. The copy is held open from before until it is removed, so that nobody can put a
    // link in its place. Where a link is there already, or in the place of the folder above, nothing is cleaned or
    // copied through it, as if there were no temporary folder.
    [[nodiscard]] std::int32_t CopyFrom(const CrashReporterContext& reporter, const std::wstring& source);

    // Empty while there is no copy.
    [[nodiscard]] const std::wstring& Path() const noexcept { return path_; }

    void Remove(const CrashReporterContext& reporter);

  private:
    [[nodiscard]] bool MakeEmpty(const std::wstring& staging);

    zo::HeldFolder parent_;
    zo::HeldFolder held_;
    std::wstring path_;
};

}  // namespace zocrash
