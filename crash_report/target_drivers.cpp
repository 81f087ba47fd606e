#include "target_drivers.h"

// clang-format off
#include <windows.h>
#include <shlwapi.h>
// clang-format on

#include <mutex>

namespace zocrash {

void TargetDrivers::Replace(const char* const* names, std::uint32_t count) {
    std::vector<std::string> taken;
    for (std::uint32_t i = 0; names != nullptr && i < count; ++i) {
        if (names[i] != nullptr && names[i][0] != '\0') taken.emplace_back(names[i]);
    }
    const std::lock_guard guard(lock_);
    names_.swap(taken);
}

std::vector<std::string> TargetDrivers::Copy() {
    const std::lock_guard guard(lock_);
    return names_;
}

std::string TargetDrivers::Match(const std::string& text) {
    std::vector<std::string> names = Copy();
    if (names.empty()) names = {"ZoProtector", "ZoProtectorDriver"};

    std::string matched;
    for (const std::string& name : names) {
        if (StrStrIA(text.c_str(), name.c_str()) == nullptr) continue;
        if (!matched.empty()) matched += '|';
        matched += name;
    }
    return matched;
}

}  // namespace zocrash
