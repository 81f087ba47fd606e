#pragma once

// The identity of a file, which a rename keeps and no other file of the volume has.

#include <array>
#include <cstdint>
#include <optional>

namespace zo {

struct FileId {
    std::uint64_t volume = 0;
    std::array<std::uint8_t, 16> file{};

    bool operator==(const FileId&) const = default;
};

enum class LastLink { kFollow, kDoNotFollow };

// Nothing where there is no such file, or where the file system has no ids or gives zero instead.
[[nodiscard]] std::optional<FileId> FileIdOf(const wchar_t* path, LastLink lastLink);

}  // namespace zo
