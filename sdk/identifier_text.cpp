#include "identifier_text.h"

#include <algorithm>

namespace zop {

namespace {

// STORAGE_DEVICE_DESCRIPTOR: its fixed part, and where it says at what offset the serial number stands.
constexpr std::size_t kDescriptorSize = 40;
constexpr std::size_t kSerialOffsetField = 24;

constexpr std::uint8_t kUnitSeparator = 0x1F;
constexpr std::size_t kUsualInputSize = 512;

}  // namespace

std::string_view ZopTextAt(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept {
    if (offset >= bytes.size()) return {};
    const auto rest = bytes.subspan(offset);
    const auto end = std::find(rest.begin(), rest.end(), std::uint8_t{0});
    std::string_view text(reinterpret_cast<const char*>(rest.data()), static_cast<std::size_t>(end - rest.begin()));
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string_view ZopSerialOfDescriptor(std::span<const std::uint8_t> buffer, std::size_t returned) noexcept {
    if (returned < kDescriptorSize || buffer.size() < kDescriptorSize) return {};
    std::size_t offset = 0;
    for (std::size_t i = 0; i < 4; ++i)
        offset |= std::size_t{buffer[kSerialOffsetField + i]} << (8 * i);
    if (offset == 0 || offset >= returned) return {};
    return ZopTextAt(buffer, offset);
}

ZopMixedIdentifiers ZopMixIdentifiers(std::span<const ZopIdentifier> identifiers) {
    ZopMixedIdentifiers mixed;
    mixed.input.reserve(kUsualInputSize);
    for (const ZopIdentifier& identifier : identifiers) {
        if (identifier.value.empty()) continue;
        mixed.input.insert(mixed.input.end(), identifier.label.begin(), identifier.label.end());
        mixed.input.push_back(kUnitSeparator);
        mixed.input.insert(mixed.input.end(), identifier.value.begin(), identifier.value.end());
        ++mixed.count;
    }
    return mixed;
}

}  // namespace zop
