#pragma once

// The crash protocol document as text: a flat list of tags in the byte order of their names. Values go in as they are;
// the protocol has no escaping.

#include <cstdint>
#include <map>
#include <string>

#include "request_body.h"

namespace zocrash {

using DocumentFields = std::map<std::string, std::string, std::less<>>;

[[nodiscard]] RequestBody RenderDocument(const DocumentFields& fields);

// "0x" and sixteen upper-case digits.
[[nodiscard]] std::string AddressText(std::uint64_t address);

// No number is padded: the server reads "2026-1-2 3:4:5".
[[nodiscard]] std::string TimestampText(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                                        unsigned second);

// The first line of every analysis text, which the signature covers.
[[nodiscard]] std::string BugcheckLine(std::uint32_t code);

}  // namespace zocrash
