#pragma once

// The layout of RSA key blobs, checked before the platform sees them: it believes the lengths in a blob's header and
// would read past the end of one that is cut short. Pure.

#include <cstdint>
#include <span>

namespace zosigner {

enum class KeyBlobKind { kPublic, kFullPrivate };

// Whether the bytes are one 2048-bit key of that kind, exactly as long as their header says. Gives 0, or the NTSTATUS
// to report: 0xC000000D for less than a header, 0xC00000BB for anything else that does not fit. The platform finds out
// whether the numbers form a key.
[[nodiscard]] std::int32_t CheckKeyBlob(std::span<const std::uint8_t> blob, KeyBlobKind kind) noexcept;

}  // namespace zosigner
