#pragma once

// The plain HRESULT of a Win32 error and of an NTSTATUS. The driver channel and the driver service have error maps of
// their own, which stay with them.

#include <cstdint>

namespace zo {

inline constexpr std::int32_t kOk = 0;
inline constexpr std::int32_t kFail = static_cast<std::int32_t>(0x80004005u);
inline constexpr std::int32_t kAborted = static_cast<std::int32_t>(0x80004004u);
inline constexpr std::int32_t kOutOfMemory = static_cast<std::int32_t>(0x8007000Eu);
inline constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057u);
inline constexpr std::int32_t kInsufficientBuffer = static_cast<std::int32_t>(0x8007007Au);

// 0 stays success, and a value that is an HRESULT already (negative) stays what it is.
[[nodiscard]] constexpr std::int32_t HresultFromWin32(std::uint32_t error) noexcept {
    const auto value = static_cast<std::int32_t>(error);
    return value <= 0 ? value : static_cast<std::int32_t>(0x80070000u | (error & 0xFFFFu));
}

[[nodiscard]] constexpr std::int32_t HresultFromNtStatus(std::int32_t status) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(status) | 0x10000000u);
}

}  // namespace zo
