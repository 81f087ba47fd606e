#pragma once

// One directory's contents, straight from its listing: names, attributes, sizes and file numbers come without a call
// for each item. And the identity of a file, by which the manifest is recognised whatever its spelling.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "owned_handles.h"

namespace zosigner {

struct DirectoryItem {
    std::wstring_view name;  // valid until the next item is asked for
    std::uint32_t attributes = 0;
    std::uint64_t size = 0;
    std::uint64_t fileId = 0;

    [[nodiscard]] bool IsDirectory() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    [[nodiscard]] bool IsReparsePoint() const { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
};

class DirectoryListing {
  public:
    DirectoryListing();

    // A link is followed only where it is asked for. Gives the Win32 error, 0 when done. One object lists any number of
    // directories, one after the other.
    [[nodiscard]] std::uint32_t Open(const wchar_t* path, bool followLink);
    // False at the end and at an error; Error() is 0 at the end. "." and ".." are left out.
    [[nodiscard]] bool Next(DirectoryItem& item);
    [[nodiscard]] std::uint32_t Error() const { return error_; }

  private:
    [[nodiscard]] bool Fill();

    std::vector<std::uint64_t> buffer_;  // the records in it are aligned to eight bytes
    const std::byte* next_ = nullptr;    // null when the buffer is used up
    zo::OwnedFile directory_;
    bool begun_ = false;
    std::uint32_t error_ = 0;
};

// A file as such: two paths are the same file when their volume and file number are.
class FileIdentity {
  public:
    // Of a file that need not exist; then no item is it.
    explicit FileIdentity(const wchar_t* path);

    // Whether the listed item can be this file. Its file number rules nearly all items out; what is left, and items of
    // file systems that give no numbers, is settled by Is.
    [[nodiscard]] bool MayBe(const DirectoryItem& item) const;
    [[nodiscard]] bool Is(const wchar_t* path) const;

  private:
    BY_HANDLE_FILE_INFORMATION information_{};
    bool exists_ = false;
};

}  // namespace zosigner
