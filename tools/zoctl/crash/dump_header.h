#pragma once

// What the header of a 64-bit kernel dump says without the debugger engine: which bug check it is of, and whether the
// file is complete, so that an engine that fails for it is at fault and not the file. Pure.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zoctl {

struct BugCheck {
    std::uint32_t code = 0;
    std::array<std::uint64_t, 4> parameters{};
};

struct DumpHeader {
    bool sound = false;                // of an x64 system, and the file is as long as the header says
    std::optional<BugCheck> bugCheck;  // known when the file begins like a dump, even if it is cut off later
};

// The bytes of the file at an offset; fewer at its end, none where it cannot be read.
using ReadFileAt = std::function<std::string(std::uint64_t offset, std::size_t size)>;

[[nodiscard]] DumpHeader ReadDumpHeader(const ReadFileAt& read);

}  // namespace zoctl
