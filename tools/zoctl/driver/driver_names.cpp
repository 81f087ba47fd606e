#include "driver_names.h"

#include <algorithm>

#include "format.h"

namespace zoctl {

static_assert(ZOP_START_BOOT == 0 && ZOP_START_DISABLED == kStartTypes.size() - 1);

const char* StartTypeName(std::uint32_t startType) {
    return startType < kStartTypes.size() ? kStartTypes[startType] : "unknown";
}

std::optional<std::uint32_t> StartTypeNumber(std::string_view name) {
    const auto found = std::find(kStartTypes.begin(), kStartTypes.end(), name);
    if (found == kStartTypes.end()) return std::nullopt;
    return static_cast<std::uint32_t>(found - kStartTypes.begin());
}

const char* StateName(std::uint32_t state) {
    static constexpr std::array kStates = {"not installed", "stopped", "start pending", "stop pending", "running"};
    static_assert(ZOP_DRIVER_NOT_INSTALLED == 0 && ZOP_DRIVER_RUNNING == kStates.size() - 1);
    return state < kStates.size() ? kStates[state] : "unknown";
}

std::string VersionText(std::span<const std::uint32_t> parts) {
    std::string text;
    for (const std::uint32_t part : parts)
        text += zo::Format("{}{}", text.empty() ? "" : ".", part);
    return text;
}

std::string FileVersionText(const std::array<std::uint32_t, 4>& parts) {
    const bool none = std::all_of(parts.begin(), parts.end(), [](std::uint32_t part) { return part == 0; });
    return none ? std::string() : VersionText(parts);
}

std::string FileVersionText(const ZoProtectorDriverStatus& record) {
    return FileVersionText(std::array{record.fileVersionMajor, record.fileVersionMinor, record.fileVersionBuild,
                                      record.fileVersionRevision});
}

bool IsAltitude(std::string_view text) {
    const auto isNumber = [](std::string_view digits) {
        return !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
    };
    const std::size_t point = text.find('.');
    return isNumber(text.substr(0, point)) && (point == std::string_view::npos || isNumber(text.substr(point + 1)));
}

}  // namespace zoctl
