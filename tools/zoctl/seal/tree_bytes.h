#pragma once

// How much there is to read in a tree, for a line of progress.

#include <cstdint>
#include <functional>
#include <string>

namespace zoctl {

// The sizes of all files, links not followed; what cannot be listed counts as nothing. Gives up when `ended` says so.
[[nodiscard]] std::uint64_t TreeBytes(const std::wstring& root, const std::function<bool()>& ended);

}  // namespace zoctl
