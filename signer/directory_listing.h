#pragma once

// One directory's contents, straight from its listing: names, attributes, sizes and times come without a call for
// each item.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "io_buffer.h"
#include "owned_handles.h"

namespace zosigner {

struct DirectoryItem {
    std::wstring_view name;  // valid until the next item is asked for
    std::uint32_t attributes = 0;
    std::uint64_t size = 0;
    std::uint64_t created = 0;  // FILETIME

    [[nodiscard]] bool IsDirectory() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    [[nodiscard]] bool IsReparsePoint() const { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
};

class DirectoryListing {
  public:
    // The listing is invalid once anything else uses the buffer.
    explicit DirectoryListing(IoBuffer& buffer) : buffer_(buffer) {}

    // Follows a link at the end of the path only if followLink says so. Gives the Win32 error, 0 on success. One object
    // can list any number of directories, one after the other.
    [[nodiscard]] std::uint32_t Open(const wchar_t* path, bool followLink);
    // False at the end, where Error() is 0, and after an error. "." and ".." are left out.
    [[nodiscard]] bool Next(DirectoryItem& item);
    [[nodiscard]] std::uint32_t Error() const { return error_; }

  private:
    [[nodiscard]] bool Fill();

    IoBuffer& buffer_;
    const std::byte* next_ = nullptr;  // null when the buffer is used up
    zo::OwnedFile directory_;
    bool begun_ = false;
    std::uint32_t error_ = 0;
};

}  // namespace zosigner
