#pragma once

// The dedupe record: a file of eight bytes, the last-write time of the newest dump that a run has dealt with. An empty
// path switches it off.

#include <cstdint>
#include <string>

namespace zocrash {

// 0 when there is no record, it is shorter than eight bytes or it cannot be read.
[[nodiscard]] std::uint64_t ReadDedupeRecord(const std::wstring& path);

// Makes the folders above as well. Failures are ignored: the dumps are then offered again.
void WriteDedupeRecord(const std::wstring& path, std::uint64_t lastWrite);

}  // namespace zocrash
