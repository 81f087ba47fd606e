#pragma once

// Where a command gets its key from: a key file, the private half of a keystore, or standard input. zoctl reads the key
// itself and hands the library its bytes, because the library makes a new pair wherever a keystore has no private key
// that it can use: a mistyped path must not do that.

#include <windows.h>

#include <cstdint>
#include <string>
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

struct KeySource {
    std::string file;    // "-" is standard input
    std::string name;    // begins a sentence: "The key file 'D:\Keys\private.rsakey'"
    std::string advice;  // for a source that has no usable key
};

// file: what follows --key.
[[nodiscard]] KeySource KeyOption(const std::string& file);
[[nodiscard]] KeySource PrivateKeyOf(const std::string& keystore);

// The key files of a keystore.
[[nodiscard]] std::string PrivateKeyFile(const std::string& keystore);
[[nodiscard]] std::string PublicKeyFile(const std::string& keystore);

// Ends the command when there are no bytes. Whether they are a key is for the library to find out.
[[nodiscard]] Ended ReadKey(Output& out, const KeySource& source, KeyBytes& key);

}  // namespace zoctl
