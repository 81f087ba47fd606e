#pragma once

// What the library's file says about how it was built.

#include <string>

namespace zoctl {

// "development settings: NAMES" when the loaded library was built with keys or settings that must not be shipped; empty
// when it was not, or when its file cannot be read.
[[nodiscard]] std::string DevelopmentSettings();

// The hexadecimal text of the public key that the library was built with; empty when its file cannot be read.
[[nodiscard]] std::string EmbeddedPublicKey();

}  // namespace zoctl
