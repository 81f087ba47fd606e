#pragma once

// The journal of "zoctl crash run" and "upload": one JSON object per line and dump, added when the outcome is known.
// It answers whether a crash was reported, and if not, why not. Nothing reads it but "zoctl crash history" and people.

#include <cstdint>
#include <filesystem>
#include <vector>

#include "output.h"
#include "owned_handles.h"

namespace zoctl {

class CrashJournal {
  public:
    explicit CrashJournal(std::filesystem::path path) : path_(std::move(path)) {}

    [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

    // Makes the file and its folder where they are missing. Gives the Win32 error.
    [[nodiscard]] std::uint32_t Open();
    // One write, so that the lines of two processes do not mix. Gives the Win32 error.
    [[nodiscard]] std::uint32_t Add(const std::vector<Json>& entries);

  private:
    std::filesystem::path path_;
    zo::OwnedFile file_;
};

struct JournalEntries {
    std::vector<Json> entries;     // oldest first; each is an object
    std::uint32_t unreadable = 0;  // lines
};

// Gives the Win32 error.
[[nodiscard]] std::uint32_t ReadCrashJournal(const std::filesystem::path& path, JournalEntries& journal);

// This moment in UTC: "2026-01-02T03:04:05Z".
[[nodiscard]] std::string JournalTime();

}  // namespace zoctl
