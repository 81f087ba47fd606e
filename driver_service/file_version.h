#pragma once

// Reads a driver file's version. The status query ignores a failure, the upgrade reports it.

#include <cstdint>

namespace zop {

struct ZopFileVersion {
    std::uint32_t major = 0;  // each 0 to 65535
    std::uint32_t minor = 0;
    std::uint32_t build = 0;
    std::uint32_t revision = 0;

    // As one number, which orders as the versions do.
    [[nodiscard]] constexpr std::uint64_t Packed() const noexcept {
        return std::uint64_t{major} << 48 | std::uint64_t{minor} << 32 | std::uint64_t{build} << 16 | revision;
    }
};

// From the fixed part of the file's version resource; four zeros unless that could be read.
[[nodiscard]] std::int32_t ZopReadFileVersion(const wchar_t* path, ZopFileVersion& version);

}  // namespace zop
