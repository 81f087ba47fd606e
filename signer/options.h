#pragma once

// What the options of signing and of verifying have in common: paths and a key.

#include <cstdint>
#include <span>

namespace zosigner {

template <typename Options>
[[nodiscard]] bool HasPaths(const Options* options) {
    return options != nullptr && options->root != nullptr && options->manifest != nullptr;
}

template <typename Options>
[[nodiscard]] bool HasKeyBlob(const Options& options) {
    return options.keyBlob != nullptr && options.keyBlobSize != 0;
}

template <typename Options>
[[nodiscard]] bool HasKey(const Options& options) {
    return HasKeyBlob(options) || (options.keystore != nullptr && options.keystore[0] != L'\0');
}

template <typename Options>
[[nodiscard]] std::span<const std::uint8_t> KeyBlobOf(const Options& options) {
    return {options.keyBlob, options.keyBlobSize};
}

}  // namespace zosigner
