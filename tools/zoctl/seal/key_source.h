#pragma once

// Where a command gets its key from: a key file, the private half of a keystore, or standard input. zoctl reads the key
// itself and hands the library its bytes, because the library makes a new pair wherever a keystore has no private key
// that it can use: a mistyped path must not do that.

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "output.h"

namespace zoctl {

// The bytes of one key file. Cleared before they are freed, so that no private key stays in memory.
struct KeyBytes : std::vector<std::uint8_t> {
    KeyBytes() = default;
    KeyBytes(const KeyBytes&) = delete;
    KeyBytes& operator=(const KeyBytes&) = delete;
    ~KeyBytes() { SecureZeroMemory(data(), size()); }
};

// Names standard input as a key file.
inline constexpr std::string_view kStandardInput = "-";

struct KeySource {
    std::string file;    // or kStandardInput
    std::string name;    // begins a sentence: "The key file 'D:\Keys\private.rsakey'"
    std::string advice;  // for a source that has no usable key
};

// file: what follows --key.
[[nodiscard]] KeySource KeyOption(const std::string& file);
[[nodiscard]] KeySource PrivateKeyOf(const std::string& keystore);

// The key files of a keystore.
[[nodiscard]] std::string PrivateKeyFile(const std::string& keystore);
[[nodiscard]] std::string PublicKeyFile(const std::string& keystore);

// The thumbprint of a public or private key. False when the bytes are not a key.
[[nodiscard]] bool ThumbprintOf(const KeyBytes& key, std::uint8_t (&thumbprint)[32]);

// Ends the command when there are no bytes. Whether they are a key is for the library to find out.
[[nodiscard]] Ended ReadKey(Output& out, const KeySource& source, KeyBytes& key);

}  // namespace zoctl
