#pragma once

// The folder of the user's local application data.

#include <filesystem>

namespace zo {

// Empty when the system does not tell it.
[[nodiscard]] std::filesystem::path LocalAppDataFolder();

}  // namespace zo
